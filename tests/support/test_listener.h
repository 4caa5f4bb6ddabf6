// A peer on the loopback.
#ifndef HALCYRIX_TESTS_SUPPORT_TEST_LISTENER_H
#define HALCYRIX_TESTS_SUPPORT_TEST_LISTENER_H

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "net/tcp_listen.h"

// Listens on a free port, or the given one; speaks for the last connection that it accepted.
class TestListener : public RXTCPListen {
public:
    explicit TestListener(int port = 0) : RXTCPListen(port, htonl(INADDR_LOOPBACK)) {}
    ~TestListener() override { close(accepted); }

    void OnAccept(int32_t fd, const sockaddr_in&) override {
        close(accepted);
        accepted = fd;
    }

    int Port() const {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }

    void Say(const std::string& bytes) const {
        ASSERT_EQ(write(accepted, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    // Waits for `size` bytes, or for the end.
    std::string Hear(size_t size) const {
        std::string bytes(size, '\0');
        const ssize_t got = recv(accepted, bytes.data(), size, MSG_WAITALL);
        return bytes.substr(0, got > 0 ? static_cast<size_t>(got) : 0);
    }

    int accepted = -1;
};

// Waits until the descriptor is ready for IO_READ, or IO_WRITE.
inline void Await(int fd, uint32_t flag) {
    pollfd wanted{fd, static_cast<short>(flag == IO_READ ? POLLIN : POLLOUT), 0};
    poll(&wanted, 1, -1);
}

#endif
