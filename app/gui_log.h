// The face of the main window to the rest of the program.
#ifndef HALCYRIX_APP_GUI_LOG_H
#define HALCYRIX_APP_GUI_LOG_H

#include "lib/progress_indicator.h"
#include "log/gamelog.h"

// Shows log lines in the console, progress in the progress bar and status in the status bar, and
// decides at the end of a session what comes next.
//
// Progress and status are reported from inside long work, so both let GTK process its events: the
// player may press a button or close the window during the call. That stops as soon as network
// input waits or the player wants to quit.
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

private:
    uint64_t m_lastProgress = 0;  // milliseconds on the scale of EventLoop::Now()
};

// Lets GTK process its events, up to the first sign of network input or of the player's wish to
// quit.
void process_window_events();

#endif
