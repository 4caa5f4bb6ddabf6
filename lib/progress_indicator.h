// What long work reports to.
#ifndef HALCYRIX_LIB_PROGRESS_INDICATOR_H
#define HALCYRIX_LIB_PROGRESS_INDICATOR_H

#include <cstdint>

// The face that the update client shows its progress, status and outcome to.
class ProgressIndicator {
public:
    virtual ~ProgressIndicator() = default;

    // Bytes of work done and in all.
    virtual void SetProgress(int32_t done, int32_t total) = 0;
    // One line of text, in place of the previous one.
    virtual void SetStatus(const char* text) = 0;
    // An update session has ended: the number of files received, or -1 after a failure. The client
    // is idle by then, so the next session may be started from inside the call.
    virtual void Finished(int32_t result) = 0;
    // SetProgress() for totals of 2 GiB and more.
    virtual void SetLongProgress(int64_t done, int64_t total) {
        SetProgress(static_cast<int32_t>(done), static_cast<int32_t>(total));
    }

    // What work of any size calls: the form that holds the total.
    void ShowProgress(int64_t done, int64_t total) {
        if (total <= INT32_MAX) {
            SetProgress(static_cast<int32_t>(done), static_cast<int32_t>(total));
        } else {
            SetLongProgress(done, total);
        }
    }
};

#endif
