// Releases for tests, made in the working directory.
#ifndef HALCYRIX_TESTS_SUPPORT_SAMPLE_STORE_H
#define HALCYRIX_TESTS_SUPPORT_SAMPLE_STORE_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "store/publisher.h"
#include "store/store.h"

// Remembers warnings, and calls back at every step of the work.
class RecordingObserver : public PublishObserver {
public:
    void Warn(const std::string& text) override { warnings.push_back(text); }
    void Progress(const char* work, size_t, size_t, const std::string& name) override {
        if (onProgress) onProgress(std::string(work) + " " + name);
    }

    std::vector<std::string> warnings;
    std::function<void(const std::string&)> onProgress;
};

// Publishes to "store"; returns the error, or an empty string.
std::string PublishSample(const std::string& version,
                          const std::vector<ComponentSource>& components = {{"common", "game"}},
                          size_t patches_from = 3, RecordingObserver* observer = nullptr);

// Null when "store" is none or damaged.
std::unique_ptr<Store> OpenSample();

#endif
