// The progress of reading a file, as part of longer work.
#pragma once

#include <cstdint>
#include <string>

#include "lib/progress_indicator.h"
#include "lib/work_observer.h"

// Tells the observer of what the checksum functions have read. When it ends, all of the file counts
// as done.
class FileProgress : public ProgressIndicator {
public:
    FileProgress(WorkObserver* observer, const std::string& name, uint64_t length)
        : m_observer(observer), m_left(length) {
        m_observer->File(name);
    }
    ~FileProgress() override { m_observer->Done(m_left); }

    void SetProgress(int32_t done, int32_t total) override { SetLongProgress(done, total); }
    void SetLongProgress(int64_t done, int64_t total) override {
        const uint64_t left = static_cast<uint64_t>(total - done);
        if (left >= m_left) return;
        m_observer->Done(m_left - left);
        m_left = left;
    }
    void SetStatus(const char*) override {}
    void Finished(int32_t) override {}

private:
    WorkObserver* m_observer;
    uint64_t m_left;
};
