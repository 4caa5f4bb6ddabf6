// The progress of long work, for people.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

#include "store/publisher.h"

// One line of the terminal on standard error that is written over four times a second. Where
// standard error is no terminal it shows nothing but warnings.
class ProgressLine : public PublishObserver {
public:
    ProgressLine();
    ~ProgressLine() override { End(); }

    void Begin(const char* step, uint64_t bytes) override;
    void File(const std::string& name) override;
    void Done(uint64_t bytes) override { m_done += bytes; }
    void Warn(const std::string& text) override;

    // Prints a line while the work goes on.
    void Print(FILE* stream, const std::string& line);
    // Erases the line for good. Call before anything else is printed.
    void End();

private:
    using Clock = std::chrono::steady_clock;

    void Redraw(const std::stop_token& ended);
    void Draw();
    void Erase();

    std::atomic<uint64_t> m_done = 0;  // bytes of the step
    std::mutex m_mutex;                // of all below
    std::condition_variable_any m_endTold;
    std::string m_step;  // empty before the first
    std::string m_file;
    uint64_t m_bytes = 0;
    Clock::time_point m_begun{};
    bool m_drawn = false;
    std::jthread m_thread;  // runs Redraw(); none without a terminal
};
