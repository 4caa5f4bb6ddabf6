// The receiver of crash reports, for tests.
#ifndef HALCYRIX_TESTS_SUPPORT_REPORT_RECEIVER_H
#define HALCYRIX_TESTS_SUPPORT_REPORT_RECEIVER_H

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/support/await.h"

// Listens on port 80 of 127.0.0.1 while it lives.
class ReportReceiver {
public:
    ReportReceiver() {
        sockaddr_in address{AF_INET, htons(80), {htonl(INADDR_LOOPBACK)}, {}};
        const int on = 1;
        setsockopt(m_fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        EXPECT_EQ(bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(m_fd, 4), 0);
    }
    ~ReportReceiver() { close(m_fd); }

    // Waits for one report, answers and closes. Returns the request as it came.
    std::string Receive(const std::string& reply) const {
        Awaiting("a crash report");
        const int fd = accept(m_fd, nullptr, nullptr);
        std::string request;
        for (char byte; !request.ends_with("\n\n") && recv(fd, &byte, 1, 0) == 1;) request += byte;
        std::string body(std::stoul(request.substr(request.find("th: ") + 4)), '\0');
        EXPECT_EQ(recv(fd, body.data(), body.size(), MSG_WAITALL), ssize_t(body.size()));
        EXPECT_EQ(send(fd, reply.data(), reply.size(), 0), ssize_t(reply.size()));
        close(fd);
        return request + body;
    }

    // Whether somebody has connected and was not served.
    bool IsWanted() const {
        pollfd waiting{m_fd, POLLIN, 0};
        return poll(&waiting, 1, 0) > 0;
    }

private:
    const int m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

#endif
