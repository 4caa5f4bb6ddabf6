#include "release/progress_line.h"

#include <algorithm>

#include "store/names.h"

namespace {

constexpr std::chrono::milliseconds kInterval{250};

// "12.3 MB"
std::string Amount(double bytes) {
    size_t unit = 0;
    for (; bytes >= 1000 && unit < 4; ++unit) bytes /= 1000;
    constexpr const char* kUnits[] = {"B", "kB", "MB", "GB", "TB"};
    char text[32];
    snprintf(text, sizeof text, "%.*f %s", unit == 0 ? 0 : 1, bytes, kUnits[unit]);
    return text;
}

// "1:02:03"
std::string Duration(unsigned seconds) {
    char text[48];
    snprintf(text, sizeof text, "%u:%02u:%02u", seconds / 3600, seconds / 60 % 60, seconds % 60);
    return text;
}

}  // namespace

void ProgressLine::Begin(const char* step, uint64_t bytes) {
    const std::lock_guard lock(m_mutex);
    m_step = step;
    m_file.clear();
    m_bytes = bytes;
    m_done = 0;
    m_begun = Clock::now();
    Draw(m_begun);
}

void ProgressLine::File(const std::string& name) {
    const std::lock_guard lock(m_mutex);
    const bool first = m_file.empty();
    m_file = name;
    if (first) Draw(Clock::now());
}

void ProgressLine::Done(uint64_t bytes) {
    const std::lock_guard lock(m_mutex);
    m_done += bytes;
    const auto now = Clock::now();
    if (now - m_drawn >= kInterval) Draw(now);
}

void ProgressLine::Warn(const std::string& text) {
    Print(stderr, "halcyrix-release: warning: " + text);
}

void ProgressLine::Print(FILE* stream, const std::string& line) {
    const std::lock_guard lock(m_mutex);
    Erase();
    fprintf(stream, "%s\n", line.c_str());
    if (m_isTerminal) fflush(stream);
}

void ProgressLine::End() {
    const std::lock_guard lock(m_mutex);
    Erase();
}

void ProgressLine::Draw(Clock::time_point now) {
    if (!m_isTerminal) return;
    std::string text = m_step;
    const auto done = static_cast<double>(std::min(m_done, m_bytes));
    if (m_bytes > 0) {
        const auto bytes = static_cast<double>(m_bytes);
        const double seconds = std::chrono::duration<double>(now - m_begun).count();
        text += "  " + std::to_string(static_cast<int>(done / bytes * 100)) + "%  " + Amount(done) +
                " of " + Amount(bytes);
        if (done > 0 && seconds >= 1) {
            const double left = (bytes - done) * seconds / done;
            text += "  " + Amount(done / seconds) + "/s  " +
                    Duration(static_cast<unsigned>(std::min(left, 1e9))) + " left";
        }
    }
    if (!m_file.empty()) text += "  " + m_file;
    std::ranges::replace_if(text, IsControl, '?');
    // What does not fit is cut off: the terminal begins no new line here.
    fprintf(stderr, "\r\033[K\033[?7l%s\033[?7h", text.c_str());
    m_drawn = now;
    m_shown = true;
}

void ProgressLine::Erase() {
    if (m_shown) fputs("\r\033[K", stderr);
    m_shown = false;
}
