// The progress of long work, for people.
#pragma once

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

#include "lib/work_observer.h"

// One line of the terminal on standard error that is written over, at most four times a second.
// Where standard error is no terminal it shows nothing but warnings.
class ProgressLine : public WorkObserver {
public:
    ~ProgressLine() override { End(); }

    void Begin(const char* step, uint64_t bytes) override;
    void File(const std::string& name) override;
    void Done(uint64_t bytes) override;
    void Warn(const std::string& text) override;

    // Prints a line while the work goes on.
    void Print(FILE* stream, const std::string& line);
    // Erases the line for good. Call before anything else is printed.
    void End();

private:
    using Clock = std::chrono::steady_clock;

    void Draw(Clock::time_point now);
    void Erase();

    const bool m_isTerminal = isatty(STDERR_FILENO) != 0;
    std::mutex m_mutex;  // of all below
    std::string m_step;
    std::string m_file;
    uint64_t m_bytes = 0;  // of the step
    uint64_t m_done = 0;   // of those
    Clock::time_point m_begun{};
    Clock::time_point m_drawn{};
    bool m_shown = false;
};
