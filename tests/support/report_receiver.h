// The receiver of crash reports, for tests.
#ifndef HALCYRIX_TESTS_SUPPORT_REPORT_RECEIVER_H
#define HALCYRIX_TESTS_SUPPORT_REPORT_RECEIVER_H

#include <poll.h>

#include <string>
#include <utility>

#include "tests/support/recorders.h"
#include "tests/support/test_listener.h"

// Listens on port 80 of 127.0.0.1 while it lives, where that is allowed.
class ReportReceiver {
public:
    bool Listens() { return m_listener.IsOpen(); }

    // Waits for one report, answers and closes. Returns the request as it came.
    std::string Receive(const std::string& reply) {
        Await(m_listener.m_fd, IO_READ);
        m_listener.OnReadable();
        std::string request;
        while (request.find("\n\n") == std::string::npos) {
            const std::string byte = m_listener.Hear(1);
            if (byte.empty()) return request;
            request += byte;
        }
        request += m_listener.Hear(std::stoul(request.substr(request.find("th: ") + 4)));
        m_listener.Say(reply);
        close(std::exchange(m_listener.accepted, -1));
        return request;
    }

    // Whether somebody has connected and was not served.
    bool IsWanted() {
        pollfd waiting{m_listener.m_fd, POLLIN, 0};
        return poll(&waiting, 1, 0) > 0;
    }

private:
    RecordingLog m_log;
    TestListener m_listener{80};
};

#endif
