#include "net/tcp.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "tests/support/recorders.h"
#include "tests/support/test_listener.h"

namespace {

TEST(Tcp, ConnectsWithoutWaitingAndDropsTheEarlierConnection) {
    TestListener listener;
    RXTCP socket;
    ASSERT_EQ(socket.Connect("127.0.0.1", listener.Port()), 1);
    Await(socket.m_fd, IO_WRITE);
    EXPECT_EQ(socket.ConnectError(), nullptr);
    listener.OnReadable();
    for (const int fd : {listener.m_fd, socket.m_fd, listener.accepted}) {
        EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
        EXPECT_EQ((fcntl(fd, F_GETFL) & O_NONBLOCK) == 0, fd == listener.accepted);
    }
    listener.OnReadable();  // nobody there
    ASSERT_EQ(socket.Connect("127.0.0.1", listener.Port()), 1);
    EXPECT_EQ(listener.Hear(1), "") << "the earlier connection is closed";
}

TEST(Tcp, TellsOfAFailureWhenItComes) {
    RecordingLog log;
    RXTCP socket;
    EXPECT_EQ(socket.Connect("300.300.300.300", 1), 0) << "does not resolve";
    EXPECT_EQ(socket.Connect("255.255.255.255", 1), 0) << "refused at once";
    EXPECT_EQ(socket.m_flags, 0u);
    const TestListener first;
    const TestListener second(first.Port());
    EXPECT_EQ(second.m_fd, -1);
    EXPECT_EQ(second.m_flags, 0u);
    EXPECT_EQ(log.Text(), "connect: " + std::string(strerror(ENETUNREACH)) +
                              "\nRXTCPListen: " + strerror(EADDRINUSE) + "\n");
}

}  // namespace
