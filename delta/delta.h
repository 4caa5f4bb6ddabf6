// The making of patches (lib/patch_format.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "lib/work_observer.h"

enum class DeltaResult {
    MADE,
    NONE,    // the format or the size limit allows no patch between these files
    FAILED,  // a file could not be read or written
};

constexpr uint64_t kNoSizeLimit = UINT64_MAX;

struct PatchOptions {
    uint64_t sizeLimit = kNoSizeLimit;  // a larger patch is not made
    size_t threads = 1;                 // at the most; the patch is the same with any number
    WorkObserver* observer = nullptr;   // is told as many bytes as the new file has; may be null
};

// Writes to `patch` a patch that makes the contents of `new_path` from those of `old_path`. Without
// MADE, `reason` says why, and there is no such file. Neither file may change meanwhile.
[[nodiscard]] DeltaResult MakePatch(const std::string& old_path, const std::string& new_path,
                                    const std::string& patch, const PatchOptions& options,
                                    std::string* reason);

// The bytes of memory that MakePatch and VerifyPatch take at the most for files of these sizes,
// with any number of threads. Files that are mostly the same take less than half of that.
uint64_t PatchMemory(uint64_t old_size, uint64_t new_size);

// Whether the updater's own interpreter makes the new file from the old one and the patch. When it
// does not, `error` says why.
[[nodiscard]] bool VerifyPatch(const std::string& old_path, const std::string& new_path,
                               const std::string& patch, std::string* error);
