// A peer on the loopback.
#ifndef HALCYRIX_TESTS_SUPPORT_TEST_LISTENER_H
#define HALCYRIX_TESTS_SUPPORT_TEST_LISTENER_H

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "net/tcp_listen.h"

// Listens on a free port, or the given one; speaks for the last connection that it accepted.
class TestListener : public RXTCPListen {
public:
    explicit TestListener(int port = 0) : RXTCPListen(port, htonl(INADDR_LOOPBACK)) {}
    ~TestListener() override { Hang(); }

    void OnAccept(int32_t fd, const sockaddr_in& addr) override {
        Hang();
        accepted = fd;
        peer = addr;
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
    // Waits for `size` bytes.
    std::string Hear(size_t size) const {
        std::string bytes(size, '\0');
        const ssize_t got = recv(accepted, bytes.data(), size, MSG_WAITALL);
        bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return bytes;
    }
    void Hang() {
        if (accepted != -1) close(std::exchange(accepted, -1));
    }

    int accepted = -1;
    sockaddr_in peer{};
};

// Waits until the descriptor is readable, or writable.
inline void Await(int fd, uint32_t flag) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    select(fd + 1, flag == IO_READ ? &set : nullptr, flag == IO_WRITE ? &set : nullptr, nullptr,
           nullptr);
}

#endif
