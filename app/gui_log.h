// The face of the main window to the rest of the program.
#ifndef HALCYRIX_APP_GUI_LOG_H
#define HALCYRIX_APP_GUI_LOG_H

#include <cstdint>

#include "lib/progress_indicator.h"
#include "log/gamelog.h"

// Shows log lines in the console, progress in the progress bar and status in the status bar, and
// decides at the end of a session what comes next.
//
// Progress and status are reported from inside long work, so both let GTK process its events: the
// player may press a button during the call, and one that ends the program does so from inside.
class _Log : public GameLog, public ProgressIndicator {
public:
    void Print(const char* text) override;

    // Passes over a call that comes within 50 ms of the last one shown, unless it reaches the
    // total.
    void SetProgress(int32_t done, int32_t total) override;
    // After the updater's own session: restarts the program as the updater copy, or starts the
    // game's session when nothing had changed. After the game's session: lets the player play.
    void Finished(int32_t result) override;
    void SetStatus(const char* text) override;
    void SetLongProgress(int64_t done, int64_t total) override;

private:
    template <typename Count>
    void Show(Count done, Count total);

    uint64_t m_lastProgress = 0;  // milliseconds on the scale of EventLoop::Now()
};

// Adds the text to the end of the console and keeps that in view, unless the player has selected
// something there, which stays as it is. Takes any bytes: a UTF-8 character may be cut in two by
// two calls, and invalid bytes show as U+FFFD.
void console_print(const char* text);

#endif
