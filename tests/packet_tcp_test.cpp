#include "net/packet_tcp.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <random>
#include <vector>

#include "net/tcp_listen.h"
#include "tests/support/recorders.h"
#include "tests/support/seeded.h"

namespace {

using namespace std::literals;
using testing::ElementsAre;

std::string Frame(const std::string& payload) {
    uint8_t header[kFrameHeaderSize];
    PutFrameHeader(header, static_cast<int>(payload.size()));
    return std::string(header, header + sizeof header) + payload;
}

class Connection : public RXPacketTCP {
public:
    Connection() = default;
    explicit Connection(int fd) : RXPacketTCP(fd, IO_READ) { SetNonBlocking(fd); }

    void OnPacket(const uint8_t* data, int length) override {
        packets.emplace_back(data, data + length);
        if (onPacket) onPacket(packets.back());
    }
    void OnDisconnect() override {
        ++disconnects;
        if (onDisconnect) onDisconnect();
    }

    std::vector<std::string> packets;
    int disconnects = 0;
    std::function<void(const std::string&)> onPacket;
    std::function<void()> onDisconnect;
};

// A connection and the peer that a test speaks for.
class Pair {
public:
    Pair() : Pair(Open()) {}
    ~Pair() { Hang(); }

    void Say(const std::string& bytes) const {
        ASSERT_EQ(write(m_peer, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    void Hang() {
        if (m_peer != -1) close(std::exchange(m_peer, -1));
    }
    std::string Heard() const {
        std::string bytes(2 * kMaxFrame, '\0');
        const ssize_t got = recv(m_peer, bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return bytes;
    }

private:
    using Ends = std::array<int, 2>;
    static Ends Open() {
        Ends ends;
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == -1) abort();
        return ends;
    }
    explicit Pair(Ends ends) : m_peer(ends[1]), connection(ends[0]) {}

    int m_peer;

public:
    Connection connection;
};

// Plays the second server that a connection goes on to.
class SecondServer : public RXTCPListen {
public:
    SecondServer() : RXTCPListen(0, htonl(INADDR_LOOPBACK)) {}
    ~SecondServer() override {
        if (m_accepted != -1) close(m_accepted);
    }
    void OnAccept(int32_t fd, const sockaddr_in&) override { m_accepted = fd; }

    bool Take(Connection* connection) {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length);
        return connection->Connect("127.0.0.1", ntohs(address.sin_port)) == 1;
    }
    void Say(const std::string& bytes) {
        OnReadable();
        ASSERT_EQ(write(m_accepted, bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    }

private:
    int m_accepted = -1;
};

TEST(SendPacket, FramesUpToTheLargestPayload) {
    RecordingLog log;
    for (const size_t size : {0, 1, 256, 8190}) {
        Pair pair;
        const std::string payload = SeededBytes(size, 1);
        EXPECT_EQ(pair.connection.SendPacket(payload.data(), static_cast<int>(size)), 1);
        const std::string header{static_cast<char>(size / 256), static_cast<char>(size % 256)};
        EXPECT_EQ(pair.Heard(), header + payload) << size;
    }
    EXPECT_EQ(log.Text(), "");

    Pair pair;
    const std::string large(8191, 'x');
    EXPECT_EQ(pair.connection.SendPacket(large.data(), 8191), 0);
    EXPECT_EQ(pair.Heard(), "");
    EXPECT_EQ(log.Text(), "SendPacket: packet too large\n");

    signal(SIGPIPE, SIG_IGN);
    pair.Hang();
    EXPECT_EQ(pair.connection.SendPacket("x", 1), 0);
    EXPECT_EQ(Connection().SendPacket("x", 1), 0);
}

TEST(ReceivePacket, PutsFramesTogetherHoweverTheyArrive) {
    std::vector<std::string> sent;
    std::string stream;
    for (const size_t size : {3, 0, 8190, 1, 8190, 8190, 700, 0}) {
        sent.push_back(SeededBytes(size, static_cast<unsigned>(sent.size())));
        stream += Frame(sent.back());
    }
    for (const size_t piece : {size_t{1}, size_t{7}, size_t{4096}, stream.size()}) {
        Pair pair;
        for (size_t at = 0; at < stream.size(); at += piece) {
            pair.Say(stream.substr(at, piece));
            pair.connection.OnReadable();
        }
        EXPECT_EQ(pair.connection.packets, sent) << "in pieces of " << piece;
        pair.connection.OnReadable();  // drained
        EXPECT_EQ(pair.connection.packets.size(), sent.size());
        EXPECT_EQ(pair.connection.disconnects, 0);
    }
}

TEST(ReceivePacket, DropsTheConnectionAtAnInvalidLength) {
    for (const std::string& header : {"\x1f\xff"s, "\xff\xff"s}) {
        RecordingLog log;
        Pair pair;
        pair.connection.onDisconnect = [&] { EXPECT_EQ(pair.connection.IsOpen(), 0); };
        pair.Say(Frame("good") + header + Frame("later"));
        pair.connection.OnReadable();
        EXPECT_THAT(pair.connection.packets, ElementsAre("good"));
        EXPECT_EQ(pair.connection.disconnects, 1);
        EXPECT_EQ(pair.connection.m_flags, 0u);
        EXPECT_EQ(log.Text(), "Invalid packet size; disconnecting\n");
    }
}

TEST(ReceivePacket, DeliversWhatHadArrivedBeforeItWasClosed) {
    RecordingLog log;
    Pair pair;
    pair.connection.onPacket = [&](const std::string& packet) {
        if (packet == "last") pair.connection.Close();
    };
    pair.Say(Frame("first") + Frame("last") + Frame("more") + "\xff\xff junk");
    pair.connection.OnReadable();
    EXPECT_THAT(pair.connection.packets, ElementsAre("first", "last", "more"));
    EXPECT_EQ(pair.connection.disconnects, 0) << "what was closed here is not lost";
    EXPECT_EQ(log.Text(), "");
}

TEST(ReceivePacket, ForgetsTheOldConnectionWhenAPacketStartsANewOne) {
    // Once with more of the old connection behind the packet, once with the buffer full of it.
    for (const std::string& rest :
         {Frame("stale") + "\0"s, Frame(SeededBytes(8000, 3)) + "\x01"s}) {
        Pair pair;
        SecondServer second;
        pair.connection.onPacket = [&](const std::string& packet) {
            EXPECT_TRUE(packet != "move" || second.Take(&pair.connection));
        };
        pair.Say(Frame("move") + rest + std::string(kMaxFrame, '\0'));
        pair.connection.OnReadable();
        EXPECT_THAT(pair.connection.packets, ElementsAre("move"));

        second.Say(Frame("fresh"));
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(pair.connection.m_fd, &readable);
        select(pair.connection.m_fd + 1, &readable, nullptr, nullptr, nullptr);
        pair.connection.OnReadable();
        EXPECT_THAT(pair.connection.packets, ElementsAre("move", "fresh"));
        EXPECT_EQ(pair.connection.disconnects, 0);
    }
}

TEST(ReceivePacket, LeavesTheClosedConnectionToItsOwner) {
    Pair pair;
    SecondServer second;
    pair.Say(Frame("last") + "\x00"s);
    pair.Hang();
    pair.connection.OnReadable();
    EXPECT_EQ(pair.connection.disconnects, 0) << "the end comes with the next readiness";
    pair.connection.OnReadable();
    EXPECT_EQ(pair.connection.disconnects, 1);
    EXPECT_EQ(pair.connection.IsOpen(), 1);
    EXPECT_EQ(pair.connection.m_flags, IO_READ);

    pair.connection.onDisconnect = [&] { EXPECT_TRUE(second.Take(&pair.connection)); };
    pair.connection.OnReadable();
    EXPECT_EQ(pair.connection.disconnects, 2);
    pair.connection.OnReadable();
    EXPECT_EQ(pair.connection.disconnects, 2);
}

}  // namespace
