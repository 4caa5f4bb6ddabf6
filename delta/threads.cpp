#include "delta/threads.h"

#include <algorithm>
#include <system_error>
#include <thread>
#include <vector>

size_t ThreadsFor(size_t wanted) {
    return wanted != 0 ? wanted : std::max(1u, std::thread::hardware_concurrency());
}

void RunInThreads(size_t count, const std::function<void()>& work) {
    std::vector<std::thread> threads;
    try {
        while (threads.size() + 1 < count) threads.emplace_back(work);
    } catch (const std::system_error&) {
        // The threads that there are do the work.
    }
    work();
    for (std::thread& thread : threads) thread.join();
}
