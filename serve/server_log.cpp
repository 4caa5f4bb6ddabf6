#include "serve/server_log.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "store/names.h"

namespace {
constexpr int kPatience = 1000;  // milliseconds
}

void ServerLog::Print(const char* text) {
    // A pipe or terminal that is ready takes a line without waiting, and a file always is.
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, m_lost > 0 ? 0 : kPatience) == 0) {
        ++m_lost;
        return;
    }
    if (const size_t lost = std::exchange(m_lost, 0); lost > 0) {
        Print((std::to_string(lost) + " lines of the log are missing: nobody took them\n").c_str());
    }
    std::string line = text;
    std::replace_if(line.begin(), line.end() - line.ends_with('\n'), IsControl, '?');
    GameLog::Print(line.c_str());
}

void Notices::Add(const std::string& text) {
    if (m_count++ == 0) m_first = text;
}

void Notices::Tell() {
    if (m_count == 1) gamelog->Printf("%s\n", m_first.c_str());
    if (m_count > 1) {
        gamelog->Printf("%s (and %zu others like this)\n", m_first.c_str(), m_count - 1);
    }
    m_count = 0;
}
