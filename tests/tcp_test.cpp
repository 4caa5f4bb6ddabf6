#include "net/tcp.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "net/tcp_listen.h"
#include "tests/support/recorders.h"

namespace {

// Keeps the last connection that it accepted.
class Listener : public RXTCPListen {
public:
    explicit Listener(int port = 0) : RXTCPListen(port, htonl(INADDR_LOOPBACK)) {}
    ~Listener() override { Drop(); }

    void OnAccept(int32_t fd, const sockaddr_in& addr) override {
        Drop();
        accepted = fd;
        peer = addr;
    }
    void Drop() {
        if (accepted != -1) close(std::exchange(accepted, -1));
    }
    int Port() const {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }

    int accepted = -1;
    sockaddr_in peer{};
};

bool IsCloseOnExec(int fd) {
    return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

bool IsBlocking(int fd) {
    return (fcntl(fd, F_GETFL) & O_NONBLOCK) == 0;
}

// Waits for the outcome of a connection attempt.
std::string Outcome(RXTCP* socket) {
    EXPECT_EQ(socket->m_flags, IO_WRITE | IO_READ);
    fd_set writable;
    FD_ZERO(&writable);
    FD_SET(socket->m_fd, &writable);
    select(socket->m_fd + 1, nullptr, &writable, nullptr, nullptr);
    const char* error = socket->ConnectError();
    return error == nullptr ? "connected" : error;
}

TEST(Tcp, ConnectsWithoutWaitingAndDropsTheEarlierConnection) {
    Listener listener;
    EXPECT_EQ(listener.m_flags, IO_READ);
    EXPECT_FALSE(IsBlocking(listener.m_fd));
    EXPECT_TRUE(IsCloseOnExec(listener.m_fd));

    RXTCP socket;
    EXPECT_EQ(socket.IsOpen(), 0);
    ASSERT_EQ(socket.Connect("127.0.0.1", listener.Port()), 1);
    EXPECT_EQ(socket.IsOpen(), 1);
    EXPECT_FALSE(IsBlocking(socket.m_fd));
    EXPECT_TRUE(IsCloseOnExec(socket.m_fd));
    EXPECT_EQ(Outcome(&socket), "connected");

    listener.OnReadable();
    ASSERT_NE(listener.accepted, -1);
    EXPECT_TRUE(IsBlocking(listener.accepted));
    EXPECT_TRUE(IsCloseOnExec(listener.accepted));
    EXPECT_EQ(listener.peer.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    listener.OnReadable();  // nobody there
    EXPECT_NE(listener.accepted, -1);

    ASSERT_EQ(socket.Connect("127.0.0.1", listener.Port()), 1);
    char byte;
    EXPECT_EQ(read(listener.accepted, &byte, 1), 0) << "the earlier connection is closed";
}

TEST(Tcp, KeepsQuietAboutNamesThatDoNotResolve) {
    RecordingLog log;
    Listener listener;
    RXTCP socket;
    ASSERT_EQ(socket.Connect("127.0.0.1", listener.Port()), 1);
    EXPECT_EQ(socket.Connect("300.300.300.300", listener.Port()), 0);
    EXPECT_EQ(socket.m_fd, -1);
    EXPECT_EQ(socket.m_flags, 0u);
    EXPECT_EQ(log.Text(), "");
    ASSERT_EQ(socket.Connect("127.0.0.1", listener.Port()), 1);
    EXPECT_EQ(Outcome(&socket), "connected");
}

TEST(Tcp, TellsOfARefusalWhenItComes) {
    RecordingLog log;
    int port;
    {
        Listener gone;
        port = gone.Port();
    }
    RXTCP socket;
    ASSERT_EQ(socket.Connect("127.0.0.1", port), 1);
    EXPECT_EQ(Outcome(&socket), strerror(ECONNREFUSED));
    EXPECT_EQ(socket.SocketError(), 0) << "asking clears the error";
    EXPECT_EQ(log.Text(), "");

    EXPECT_EQ(socket.Connect("255.255.255.255", port), 0) << "refused at once";
    EXPECT_EQ(log.Text(), "connect: " + std::string(strerror(ENETUNREACH)) + "\n");
    EXPECT_NE(socket.m_fd, -1);
    EXPECT_EQ(socket.m_flags, 0u);
}

TEST(Listener, StaysClosedWhenThePortIsTaken) {
    RecordingLog log;
    Listener first;
    Listener second(first.Port());
    EXPECT_EQ(log.Text(), "RXTCPListen: " + std::string(strerror(EADDRINUSE)) + "\n");
    EXPECT_EQ(second.m_fd, -1);
    EXPECT_EQ(second.m_flags, 0u);
}

}  // namespace
