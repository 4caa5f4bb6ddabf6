// The making of many patches, several at a time.
#ifndef HALCYRIX_STORE_PATCH_JOBS_H
#define HALCYRIX_STORE_PATCH_JOBS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// One patch to be made, and what came of it.
struct PatchJob {
    std::string oldPath;
    std::string newPath;
    std::string patchPath;
    uint32_t oldLength;    // what the old file ought to be
    uint32_t oldChecksum;  // the same
    uint32_t newLength;    // a patch that is no smaller is not kept
    std::string name;      // for people

    bool made = false;
    std::string reason{};  // why it was not made
};

struct PatchLimits {
    size_t jobs = 0;      // at a time; 0 for as many as there are processors
    uint64_t memory = 0;  // bytes, for all of them together; 0 for half of what is free
};

// Makes the patches, and tries each as the updater would. `progress` is told of each that begins,
// with its number; one call at a time, from any thread. False, with the reason in `error`, when
// something could not be read or written; a patch that cannot be made is no such fault.
[[nodiscard]] bool RunPatchJobs(
    std::vector<PatchJob>* jobs, const PatchLimits& limits,
    const std::function<void(size_t number, const PatchJob& job)>& progress, std::string* error);

#endif
