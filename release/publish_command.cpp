#include <unistd.h>

#include <chrono>
#include <cinttypes>
#include <cstdio>

#include "release/commands.h"

namespace {

// Shows the progress in one line of a terminal that is written over, and nothing elsewhere.
class ProgressLine : public PublishObserver {
public:
    void Warn(const std::string& text) override {
        Clear();
        fprintf(stderr, "halcyrix-release: warning: %s\n", text.c_str());
    }

    void Progress(const char* work, size_t number, size_t count, const std::string& name) override {
        const auto now = std::chrono::steady_clock::now();
        if (!m_isTerminal || (number < count && now - m_shown < std::chrono::milliseconds(100))) {
            return;
        }
        m_shown = now;
        Clear();
        fprintf(stderr, "%s %zu of %zu: %.50s", work, number, count, name.c_str());
        m_dirty = true;
    }

    void Clear() {
        if (m_dirty) fputs("\r\033[K", stderr);
        m_dirty = false;
    }

private:
    const bool m_isTerminal = isatty(STDERR_FILENO) != 0;
    bool m_dirty = false;
    std::chrono::steady_clock::time_point m_shown;
};

}  // namespace

ExitStatus Publish(const PublishRequest& request) {
    std::string error;
    ProgressLine progress;
    Publisher publisher(request, &progress);
    const bool published = publisher.Publish(&error);
    progress.Clear();
    if (!published) return Problem(error);
    const Manifest& manifest = publisher.Result();
    uint64_t bytes = 0;
    for (const ReleaseFile& file : manifest.files) bytes += file.length;
    printf("published %s: %zu files of %" PRIu64 " bytes, %zu patches\n", manifest.version.c_str(),
           manifest.files.size(), bytes, manifest.patches.size());
    return EXIT_DONE;
}
