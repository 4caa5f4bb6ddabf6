#include "serve/server_log.h"

#include <poll.h>
#include <unistd.h>

#include <string>
#include <utility>

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
    GameLog::Print(text);
}
