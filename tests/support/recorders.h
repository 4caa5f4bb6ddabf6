// A log and a progress indicator that keep everything they get.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "lib/progress_indicator.h"
#include "log/gamelog.h"

// The log of the program while this object lives.
class RecordingLog : public GameLog {
public:
    RecordingLog() : m_before(std::exchange(gamelog, this)) {}
    ~RecordingLog() override { gamelog = m_before; }

    void Print(const char* text) override { m_text += text; }

    const std::string& Text() const { return m_text; }
    bool Has(const std::string& text) const { return m_text.find(text) != m_text.npos; }
    int Count(const std::string& text) const {
        int count = 0;
        for (size_t at = 0; (at = m_text.find(text, at)) != m_text.npos; at += text.size()) ++count;
        return count;
    }

private:
    GameLog* m_before;
    std::string m_text;
};

struct RecordingProgress : ProgressIndicator {
    void SetProgress(int32_t done, int32_t total) override {
        progress.emplace_back(done, total);
        if (onProgress) onProgress(done, total);
    }
    void SetStatus(const char* text) override {
        statuses.emplace_back(text);
        if (onStatus) onStatus(text);
    }
    void Finished(int32_t result) override {
        results.push_back(result);
        if (onFinished) onFinished(result);
    }

    std::vector<std::pair<int32_t, int32_t>> progress;
    std::vector<std::string> statuses;
    std::vector<int32_t> results;
    std::function<void(int32_t, int32_t)> onProgress;
    std::function<void(const char*)> onStatus;
    std::function<void(int32_t)> onFinished;
};
