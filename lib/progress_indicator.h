// What long work reports to.
#pragma once

#include <cstdint>

// Shows progress, status and outcome of the update client.
class ProgressIndicator {
public:
    virtual ~ProgressIndicator() = default;

    // Both in bytes.
    virtual void SetProgress(int32_t done, int32_t total) = 0;
    // One line of text. Replaces the previous one.
    virtual void SetStatus(const char* text) = 0;
    // An update session has ended with this number of files received, or -1 after a failure. The
    // client is idle, so the call may start the next session.
    virtual void Finished(int32_t result) = 0;
    // SetProgress() for totals of 2 GiB and more.
    virtual void SetLongProgress(int64_t done, int64_t total) {
        SetProgress(static_cast<int32_t>(done), static_cast<int32_t>(total));
    }

    // Calls the one that can hold the total.
    void ShowProgress(int64_t done, int64_t total) {
        if (total <= INT32_MAX) {
            SetProgress(static_cast<int32_t>(done), static_cast<int32_t>(total));
        } else {
            SetLongProgress(done, total);
        }
    }
};
