// The making of patches (lib/patch_format.h).
#ifndef HALCYRIX_DELTA_DELTA_H
#define HALCYRIX_DELTA_DELTA_H

#include <cstdint>
#include <string>

enum class DeltaResult {
    MADE,
    NONE,    // the format, the updater or the size limit allows no patch between these files
    FAILED,  // a file could not be read or written
};

constexpr uint64_t kNoSizeLimit = UINT64_MAX;

// Writes to `patch` a patch that makes the contents of `new_path` from those of `old_path`, unless
// it would be larger than `size_limit`. Without MADE, `reason` says why, and whatever was written
// to `patch` is deleted.
//
// Takes four bytes of memory for each byte of the old file at most, the file itself included, which
// is mapped, and little else. Neither file may change meanwhile.
[[nodiscard]] DeltaResult MakePatch(const std::string& old_path, const std::string& new_path,
                                    const std::string& patch, uint64_t size_limit,
                                    std::string* reason);

// Whether the updater's own interpreter makes the new file from the old one and the patch. When it
// does not, `error` says why.
[[nodiscard]] bool VerifyPatch(const std::string& old_path, const std::string& new_path,
                               const std::string& patch, std::string* error);

#endif
