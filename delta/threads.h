// Several threads that share a piece of work.
#pragma once

#include <cstddef>
#include <functional>

// As many as are wanted; for 0, as many as there are processors.
size_t ThreadsFor(size_t wanted);

// Runs `work` in `count` threads, one of which is the caller's, and returns when all are done. When
// the system gives fewer threads, those do the work.
void RunInThreads(size_t count, const std::function<void()>& work);
