// What a server counts, and how it tells its operators.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <string>

#include "serve/client_state.h"
#include "store/store.h"

struct ServerCounts {
    void CountWait(std::chrono::duration<double> wait);

    // Upper ends, in seconds.
    static constexpr std::array<int, 12> kWaitBuckets = {1,   2,   5,   10,   30,   60,
                                                         120, 300, 600, 1200, 1800, 3600};

    // Of this moment.
    std::array<uint64_t, kClientStates> sessions{};
    uint64_t sessionLimit = 0;
    uint64_t slots = 0;

    // Since the server started.
    time_t started = time(nullptr);
    std::array<uint64_t, kEndings> ended{};
    uint64_t sentBytes = 0;
    uint64_t readErrors = 0;  // of the server's own files
    uint64_t waits = 0;       // that ended with a slot
    double waitSeconds = 0;   // of them together
    std::array<uint64_t, kWaitBuckets.size()> waitBuckets{};
};

// In the text format of Prometheus.
std::string FormatMetrics(const ServerCounts& counts, const Store& store);
