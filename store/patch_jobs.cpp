#include "store/patch_jobs.h"

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <map>
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

// The state that the threads share.
class Workshop {
public:
    Workshop(std::vector<PatchJob>* jobs, size_t threads, uint64_t memory, WorkObserver* observer)
        : m_observer(observer), m_threads(threads), m_memory(memory) {
        uint64_t bytes = 0;
        for (PatchJob& job : *jobs) {
            const uint64_t needed = PatchMemory(job.oldLength, job.newLength);
            if (needed <= memory) {
                m_waiting.emplace(needed, &job);
                m_work += needed;
                bytes += job.newLength;
            } else {
                job.reason = "it would take more memory than it may have (--memory)";
            }
        }
        m_observer->Begin("patching", bytes);
    }

    // Does jobs until none is left or one fails. Any number of threads may call it.
    void Work() {
        std::unique_lock lock(m_mutex);
        while (m_error.empty() && !m_waiting.empty()) {
            // The largest that fits, so that no large one is left for the end.
            auto next = m_waiting.upper_bound(m_memory);
            if (next == m_waiting.begin()) {
                m_changed.wait(lock);
                continue;
            }
            const auto [needed, job] = *--next;
            m_waiting.erase(next);
            m_memory -= needed;
            // One thread wakes the next, so that none wakes in vain when memory is short.
            if (!m_waiting.empty() && m_waiting.begin()->first <= m_memory) m_changed.notify_one();
            m_observer->File(job->name);

            lock.unlock();
            std::string error;
            // A job that is most of the work gets most of the threads. Others may run beside it.
            const size_t threads = 1 + m_threads * needed / m_work;
            const bool done = Make(job, std::min(threads, m_threads), m_observer, &error);
            lock.lock();
            m_memory += needed;
            if (!done) m_error = error;
        }
        m_changed.notify_all();
    }

    const std::string& Error() const { return m_error; }

private:
    WorkObserver* const m_observer;
    size_t m_threads;
    uint64_t m_work = 0;                           // of all jobs, in bytes of memory
    std::mutex m_mutex;                            // guards what follows
    std::condition_variable m_changed;             // there is memory for a job, or no job is left
    std::multimap<uint64_t, PatchJob*> m_waiting;  // by the memory that they take
    uint64_t m_memory;                             // not in use
    std::string m_error;
};

}  // namespace

bool RunPatchJobs(std::vector<PatchJob>* jobs, const PatchLimits& limits, WorkObserver* observer,
                  std::string* error) {
    const size_t threads = ThreadsFor(limits.jobs);
    const uint64_t memory = limits.memory != 0 ? limits.memory : FreeMemory() / 2;
    Workshop workshop(jobs, threads, memory, observer);
    RunInThreads(std::min(threads, jobs->size()), [&] { workshop.Work(); });
    *error = workshop.Error();
    return error->empty();
}
