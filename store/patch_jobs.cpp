#include "store/patch_jobs.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <functional>
#include <mutex>

#include "delta/delta.h"
#include "delta/threads.h"
#include "lib/local_file_check.h"

namespace {

// The bytes that programs may take before the system swaps.
uint64_t FreeMemory() {
    std::ifstream info("/proc/meminfo");
    uint64_t kilobytes = 0;
    for (std::string word; info >> word && word != "MemAvailable:";) continue;
    info >> kilobytes;
    return kilobytes * 1024;
}

// Does one job in at most `threads` threads. False when a file cannot be read or written.
bool Make(PatchJob* job, size_t threads, WorkObserver* observer, std::string* error) {
    observer->File(job->name);
    const auto old = CheckLocalFile(job->oldPath, job->oldLength, job->oldChecksum, nullptr);
    if (old.result != CHECK_GOOD) {
        job->reason = "the earlier release is damaged";
        return true;
    }
    const PatchOptions options{job->newLength - 1, threads, observer};
    const DeltaResult result =
        MakePatch(job->oldPath, job->newPath, job->patchPath, options, &job->reason);
    if (result == DeltaResult::FAILED) *error = job->reason;
    if (result != DeltaResult::MADE) return result == DeltaResult::NONE;
    job->made = true;
    // A wrong patch would destroy the player's file, so the updater's own code checks it.
    return VerifyPatch(job->oldPath, job->newPath, job->patchPath, error);
}

}  // namespace

bool RunPatchJobs(std::vector<PatchJob>* jobs, const PatchLimits& limits, WorkObserver* observer,
                  std::string* error) {
    const size_t threads = ThreadsFor(limits.jobs);
    const uint64_t memory = limits.memory != 0 ? limits.memory : FreeMemory() / 2;
    const auto needed = [](const PatchJob* job) {
        return PatchMemory(job->oldLength, job->newLength);
    };
    std::vector<PatchJob*> alone, together;
    uint64_t work = 0, bytes = 0;
    for (PatchJob& job : *jobs) {
        if (needed(&job) > memory) {
            job.reason = "it would take more memory than it may have (--memory)";
            continue;
        }
        (needed(&job) > memory / threads ? alone : together).push_back(&job);
        work += needed(&job);
        bytes += job.newLength;
    }
    observer->Begin("patching", bytes);
    for (PatchJob* job : alone) {
        if (!Make(job, threads, observer, error)) return false;
    }
    // The largest come first, so that none of them is left for the end.
    std::ranges::sort(together, std::greater(), needed);
    std::atomic<size_t> next{0};
    std::mutex failing;  // guards `error`
    RunInThreads(std::min(threads, together.size()), [&] {
        for (size_t i; (i = next++) < together.size();) {
            // A job that is most of the work gets most of the threads.
            const size_t several = std::min(threads, 1 + threads * needed(together[i]) / work);
            std::string fault;
            if (Make(together[i], several, observer, &fault)) continue;
            const std::lock_guard lock(failing);
            *error = fault;
            next = together.size();
        }
    });
    return error->empty();
}
