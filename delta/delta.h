// The making of patches (lib/patch_format.h).
#ifndef HALCYRIX_DELTA_DELTA_H
#define HALCYRIX_DELTA_DELTA_H

#include <cstdint>
#include <string>

enum class DeltaResult {
    MADE,
    NONE,    // the format or the size limit allows no patch between these files
    FAILED,  // a file could not be read or written
};

constexpr uint64_t kNoSizeLimit = UINT64_MAX;

// Writes to `patch` a patch that makes the contents of `new_path` from those of `old_path`, unless
// it would be larger than `size_limit`. Without MADE, `reason` says why, and there is no such file.
//
// Neither file may change meanwhile.
[[nodiscard]] DeltaResult MakePatch(const std::string& old_path, const std::string& new_path,
                                    const std::string& patch, uint64_t size_limit,
                                    std::string* reason);

// The bytes of memory that MakePatch takes at the most for files of these sizes. Files that are
// mostly the same take less than half of that.
uint64_t PatchMemory(uint64_t old_size, uint64_t new_size);

// Whether the updater's own interpreter makes the new file from the old one and the patch. When it
// does not, `error` says why.
[[nodiscard]] bool VerifyPatch(const std::string& old_path, const std::string& new_path,
                               const std::string& patch, std::string* error);

#endif
