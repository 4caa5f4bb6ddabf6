#include "net/tcp.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "tests/support/recorders.h"
#include "tests/support/test_listener.h"

namespace {

bool IsCloseOnExec(int fd) {
    return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

bool IsBlocking(int fd) {
    return (fcntl(fd, F_GETFL) & O_NONBLOCK) == 0;
}

std::string Outcome(RXTCP* socket) {
    EXPECT_EQ(socket->m_flags, IO_WRITE | IO_READ);
    Await(socket->m_fd, IO_WRITE);
    const char* error = socket->ConnectError();
    return error == nullptr ? "connected" : error;
}

TEST(Tcp, ConnectsWithoutWaitingAndDropsTheEarlierConnection) {
    TestListener listener;
    RXTCP socket;
    EXPECT_EQ(socket.IsOpen(), 0);
    ASSERT_EQ(socket.Connect("127.0.0.1", listener.Port()), 1);
    EXPECT_EQ(Outcome(&socket), "connected");
    EXPECT_EQ(socket.IsOpen(), 1);

    listener.OnReadable();
    const int accepted = listener.accepted;
    ASSERT_NE(accepted, -1);
    EXPECT_EQ(listener.peer.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    for (const int fd : {listener.m_fd, socket.m_fd, accepted}) {
        EXPECT_TRUE(IsCloseOnExec(fd));
        EXPECT_EQ(IsBlocking(fd), fd == accepted);
    }
    listener.OnReadable();  // nobody there
    EXPECT_EQ(listener.accepted, accepted);

    ASSERT_EQ(socket.Connect("127.0.0.1", listener.Port()), 1);
    EXPECT_EQ(listener.Hear(1), "") << "the earlier connection is closed";
}

TEST(Tcp, TellsOfAFailureWhenItComes) {
    RecordingLog log;
    const int port = TestListener().Port();
    RXTCP socket;
    ASSERT_EQ(socket.Connect("127.0.0.1", port), 1);
    EXPECT_EQ(Outcome(&socket), strerror(ECONNREFUSED));
    EXPECT_EQ(socket.SocketError(), 0) << "asking clears the error";

    EXPECT_EQ(socket.Connect("300.300.300.300", port), 0) << "does not resolve";
    EXPECT_EQ(socket.m_fd, -1);
    EXPECT_EQ(socket.m_flags, 0u);
    EXPECT_EQ(log.Text(), "");

    EXPECT_EQ(socket.Connect("255.255.255.255", port), 0) << "refused at once";
    EXPECT_EQ(log.Text(), "connect: " + std::string(strerror(ENETUNREACH)) + "\n");
    EXPECT_NE(socket.m_fd, -1);
    EXPECT_EQ(socket.m_flags, 0u);

    TestListener listener;
    ASSERT_EQ(socket.Connect("127.0.0.1", listener.Port()), 1);
    EXPECT_EQ(Outcome(&socket), "connected");
}

TEST(Listener, StaysClosedWhenThePortIsTaken) {
    RecordingLog log;
    TestListener first;
    TestListener second(first.Port());
    EXPECT_EQ(first.m_flags, IO_READ);
    EXPECT_EQ(log.Text(), "RXTCPListen: " + std::string(strerror(EADDRINUSE)) + "\n");
    EXPECT_EQ(second.m_fd, -1);
    EXPECT_EQ(second.m_flags, 0u);
}

}  // namespace
