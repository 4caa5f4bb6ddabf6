// Sockets, listeners and packets.
#include "net/packet_tcp.h"

#include "net/tcp_listen.h"
#include "tests/support/recorders.h"
#include "tests/support/relay.h"
#include "tests/support/scratch_dir.h"

namespace {

using namespace std::literals;
using testing::ElementsAre;

constexpr int kPort = 21024;

// Speaks for the last connection that it accepted.
struct Peer : RXTCPListen {
    using RXTCPListen::RXTCPListen;
    ~Peer() override { close(accepted); }
    void OnAccept(int32_t fd, const sockaddr_in&) override { close(std::exchange(accepted, fd)); }

    // Waits for `size` bytes, or for the end.
    std::string Hear(size_t size) const {
        std::string bytes(size, '\0');
        bytes.resize(std::max(recv(accepted, bytes.data(), size, MSG_WAITALL), ssize_t{0}));
        return bytes;
    }

    int accepted = -1;
};

struct Connection : RXPacketTCP {
    void ConnectTo(Peer* peer, int port = kPort) {
        ASSERT_EQ(Connect("127.0.0.1", port), 1);
        ASSERT_EQ(m_flags, IO_READ | IO_WRITE);
        (server = peer)->OnReadable();
    }
    void Receive(const std::string& bytes) {
        ASSERT_EQ(send(server->accepted, bytes.data(), bytes.size(), 0), ssize_t(bytes.size()));
        OnReadable();
    }
    void OnPacket(const uint8_t* data, int length) override {
        packets.emplace_back(data, data + length);
        if (onPacket) onPacket(packets.back());
    }
    void OnDisconnect() override { packets.emplace_back("(disconnected)"); }

    Peer* server;
    std::vector<std::string> packets;
    std::function<void(const std::string&)> onPacket;
};

class Packets : public testing::Test {
protected:
    Packets() { connection.ConnectTo(&server); }

    RecordingLog log;
    Peer server{kPort};
    Connection connection;
};

TEST_F(Packets, GoThroughSocketsOfTheirOwnAndDropTheEarlierConnection) {
    EXPECT_EQ(connection.ConnectError(), nullptr);
    for (const int fd : {server.m_fd, connection.m_fd, server.accepted}) {
        EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
        EXPECT_EQ((fcntl(fd, F_GETFL) & O_NONBLOCK) == 0, fd == server.accepted);
    }
    int sendsAtOnce = 0;
    socklen_t size = sizeof sendsAtOnce;
    getsockopt(connection.m_fd, IPPROTO_TCP, TCP_NODELAY, &sendsAtOnce, &size);
    EXPECT_TRUE(sendsAtOnce);
    server.OnReadable();  // nobody there
    EXPECT_NE(server.accepted, -1);
    EXPECT_EQ(connection.Connect("300.300.300.300", 1), 0) << "does not resolve";
    EXPECT_EQ(server.Hear(1), "") << "the earlier connection is closed";
    EXPECT_EQ(connection.Connect("255.255.255.255", 1), 0) << "refused at once";
    EXPECT_EQ(connection.m_flags, 0u);
    const Peer second(kPort);
    EXPECT_TRUE(second.m_fd == -1 && second.m_flags == 0);
    EXPECT_EQ(log.Text(), "connect: Network is unreachable\nRXTCPListen: Address already in use\n");
}

TEST_F(Packets, AreFramedUpToTheLargestPayload) {
    const std::string payload = SeededBytes(8191, 1);
    EXPECT_EQ(connection.SendPacket(payload.data(), 8190), 1);
    EXPECT_EQ(server.Hear(8192), "\x1f\xfe" + payload.substr(0, 8190));
    EXPECT_EQ(connection.SendPacket(payload.data(), 8191), 0);
    EXPECT_EQ(log.Text(), "SendPacket: packet too large\n");
    EXPECT_EQ(connection.SendPacket(payload.data(), -1), 0);
    EXPECT_EQ(connection.SendPacket(nullptr, 0), 1);
    connection.Close();
    EXPECT_EQ(connection.SendPacket(payload.data(), 1), 0);
    EXPECT_EQ(server.Hear(3), "\0\0"s) << "nothing of the others was sent";
}

TEST_F(Packets, ArePutTogetherHoweverTheyArriveAndEndWithTheirConnection) {
    std::vector<std::string> sent;
    std::string stream;
    for (const size_t size : {3, 0, 8190, 1, 8190, 8190, 700, 0}) {
        sent.push_back(SeededBytes(size, static_cast<unsigned>(sent.size())));
        stream += FrameOf(sent.back());
    }
    for (const size_t piece : {size_t{1}, size_t{4096}, stream.size()}) {
        connection.packets.clear();
        for (size_t at = 0; at < stream.size(); at += piece) {
            connection.Receive(stream.substr(at, piece));
        }
        EXPECT_EQ(connection.packets, sent) << "in pieces of " << piece;
    }
    Peer second(kPort + 1);
    connection.onPacket = [&](const std::string& packet) {
        if (packet == "close") connection.Close();
        if (packet == "move") connection.ConnectTo(&second, kPort + 1);
    };
    connection.packets.clear();
    for (const std::string& first : {"good"s, "close"s, "move"s}) {
        connection.Receive(FrameOf(first) + FrameOf("more") + "\x1f\xff" + FrameOf("later"));
        if (first == "move") break;
        EXPECT_TRUE(connection.m_fd == -1 && connection.m_flags == 0);
        connection.ConnectTo(&server);
    }
    connection.Receive(FrameOf("fresh"));
    shutdown(second.accepted, SHUT_WR);
    connection.OnReadable();
    EXPECT_THAT(connection.packets, ElementsAre("good", "more", "(disconnected)", "close", "more",
                                                "move", "fresh", "(disconnected)"));
    EXPECT_EQ(log.Text(), "Invalid packet size; disconnecting\n") << "nothing after a close";
}

TEST_F(Packets, AreReadInTurnsAndDroppedUpToAnIncompleteOne) {
    const auto say = [&](const std::string& bytes) {
        return send(server.accepted, bytes.data(), bytes.size(), MSG_DONTWAIT);
    };
    std::string many;
    for (int i = 0; i < 64; ++i) many += FrameOf(SeededBytes(kMaxPayload, 1));
    ASSERT_GT(say(many), 17 * kMaxFrame);
    connection.OnReadable();
    EXPECT_LT(connection.packets.size(), 17u) << "timers must have their turn";
    connection.ConnectTo(&server);
    connection.packets.clear();
    connection.Receive("\0"s);
    say("\1x" + FrameOf(SeededBytes(8190, 1)) + FrameOf("stray") + "\0\2o"s);
    connection.DropPackets();
    connection.Receive("k");
    say("\x1f\xff");
    connection.DropPackets();
    connection.OnReadable();
    EXPECT_THAT(connection.packets, ElementsAre("ok", "(disconnected)"));
}

}  // namespace
