// Several threads that share a piece of work.
#pragma once

#include <algorithm>
#include <cstddef>
#include <system_error>
#include <thread>
#include <vector>

// As many as are wanted; for 0, as many as there are processors.
inline size_t ThreadsFor(size_t wanted) {
    return wanted != 0 ? wanted : std::max(1u, std::thread::hardware_concurrency());
}

// Runs `work` in `count` threads, one of which is the caller's, and returns when all are done. When
// the system gives fewer threads, those do the work.
template <class Work>
void RunInThreads(size_t count, const Work& work) {
    std::vector<std::jthread> threads;
    try {
        while (threads.size() + 1 < count) threads.emplace_back(work);
    } catch (const std::system_error&) {
        // The threads that there are do the work.
    }
    work();
}
