// The face of the main window to the rest of the program.
#pragma once

#include <cstdint>

#include "lib/progress_indicator.h"
#include "log/gamelog.h"

// Shows log lines in the console, progress in the progress bar and status in the status bar, and
// passes on the end of a session.
//
// Long work reports progress and status. Both calls let GTK process its events: the player may
// press a button meanwhile, and Cancel ends the program from inside the call.
class _Log : public GameLog, public ProgressIndicator {
public:
    // `finished` is called with the result of each session.
    explicit _Log(void (*finished)(int32_t) = [](int32_t) {}) : m_finished(finished) {}

    void Print(const char* text) override;

    // Ignores a call within 50 ms of the last one shown, unless it reaches the total.
    void SetProgress(int32_t done, int32_t total) override;
    void Finished(int32_t result) override;
    void SetStatus(const char* text) override;
    void SetLongProgress(int64_t done, int64_t total) override;

private:
    template <typename Count>
    void Show(Count done, Count total);

    void (*m_finished)(int32_t);
    uint64_t m_lastProgress = 0;  // milliseconds on the scale of EventLoop::Now()
};

// Appends the text to the console and scrolls to its end. A selection of the player's stays, and
// stops the scrolling. Takes any bytes: two calls may share a UTF-8 character, and invalid bytes
// show as U+FFFD.
void console_print(const char* text);

// Ends the console's last line if the text so far has not.
void console_begin_line();
