// A log and a progress indicator that nobody reads.
#ifndef HALCYRIX_TESTS_SUPPORT_QUIET_H
#define HALCYRIX_TESTS_SUPPORT_QUIET_H

#include "lib/progress_indicator.h"
#include "log/gamelog.h"

// Is the log of the program while it lives.
class QuietLog : public GameLog {
public:
    QuietLog() { gamelog = this; }
    ~QuietLog() override { gamelog = nullptr; }
    void Print(const char*) override {}
};

class QuietProgress : public ProgressIndicator {
public:
    void SetProgress(int32_t, int32_t) override {}
    void SetStatus(const char*) override {}
    void Finished(int32_t) override {}
};

#endif
