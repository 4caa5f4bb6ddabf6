// Makes many patches, several at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "lib/work_observer.h"

// One patch to make, and its result.
struct PatchJob {
    std::string oldPath;
    std::string newPath;
    std::string patchPath;
    uint32_t oldLength;  // as published, like the checksum
    uint32_t oldChecksum;
    uint32_t newLength;  // the patch must be smaller
    std::string name;    // for messages

    bool made = false;
    std::string reason{};  // why it was not made
};

struct PatchLimits {
    size_t jobs = 0;      // at a time; 0 for as many as there are processors
    uint64_t memory = 0;  // bytes, for all of them together; 0 for half of what is free
};

// Makes the patches, and applies each with the updater's code to check it. False, with the reason
// in `error`, when a file cannot be read or written. A job without a patch is no error.
[[nodiscard]] bool RunPatchJobs(std::vector<PatchJob>* jobs, const PatchLimits& limits,
                                WorkObserver* observer, std::string* error);
