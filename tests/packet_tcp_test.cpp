#include "net/packet_tcp.h"

#include <gmock/gmock.h>

#include <csignal>
#include <functional>
#include <vector>

#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/test_listener.h"

namespace {

using namespace std::literals;
using testing::ElementsAre;

std::string Frame(const std::string& payload) {
    const size_t size = payload.size();
    return std::string{static_cast<char>(size / 256), static_cast<char>(size % 256)} + payload;
}

// A connection to a listener of its own.
class Connection : public RXPacketTCP {
public:
    Connection() { Take(&server); }

    void Take(TestListener* listener) {
        ASSERT_EQ(Connect("127.0.0.1", listener->Port()), 1);
        listener->OnReadable();
    }
    void Receive(const std::string& bytes) {
        server.Say(bytes);
        Await(m_fd, IO_READ);
        OnReadable();
    }

    void OnPacket(const uint8_t* data, int length) override {
        packets.emplace_back(data, data + length);
        onPacket(packets.back());
    }
    void OnDisconnect() override {
        ++disconnects;
        onDisconnect();
    }

    TestListener server;
    std::vector<std::string> packets;
    int disconnects = 0;
    std::function<void(const std::string&)> onPacket = [](auto&) {};
    std::function<void()> onDisconnect = [] {};
};

TEST(SendPacket, FramesUpToTheLargestPayload) {
    RecordingLog log;
    Connection connection;
    for (const size_t size : {0, 1, 256, 8190}) {
        const std::string payload = SeededBytes(size, 1);
        EXPECT_EQ(connection.SendPacket(payload.data(), static_cast<int>(size)), 1);
        EXPECT_EQ(connection.server.Hear(size + 2), Frame(payload)) << size;
    }
    EXPECT_EQ(log.Text(), "");
    EXPECT_EQ(connection.SendPacket(std::string(8191, 'x').data(), 8191), 0);
    EXPECT_EQ(log.Text(), "SendPacket: packet too large\n");
    connection.Close();
    EXPECT_EQ(connection.SendPacket("x", 1), 0);
    EXPECT_EQ(connection.server.Hear(1), "") << "nothing of the large packet was sent";
}

TEST(ReceivePacket, PutsFramesTogetherHoweverTheyArrive) {
    std::vector<std::string> sent;
    std::string stream;
    for (const size_t size : {3, 0, 8190, 1, 8190, 8190, 700, 0}) {
        sent.push_back(SeededBytes(size, static_cast<unsigned>(sent.size())));
        stream += Frame(sent.back());
    }
    for (const size_t piece : {size_t{1}, size_t{4096}, stream.size()}) {
        Connection connection;
        for (size_t at = 0; at < stream.size(); at += piece) {
            connection.Receive(stream.substr(at, piece));
        }
        while (connection.packets.size() < sent.size()) {
            Await(connection.m_fd, IO_READ);
            connection.OnReadable();
        }
        EXPECT_EQ(connection.packets, sent) << "in pieces of " << piece;
        connection.OnReadable();  // drained
        EXPECT_EQ(connection.packets.size(), sent.size());
        EXPECT_EQ(connection.disconnects, 0);
    }
}

TEST(ReceivePacket, ReadsOnAtOnceWhenTheBufferWasFilled) {
    Connection connection;
    connection.Receive(Frame(std::string(8190, 'x')) + Frame("next"));
    EXPECT_EQ(connection.packets.size(), 2u);
}

TEST(ReceivePacket, DropsTheConnectionAtAnInvalidLength) {
    for (const auto& header : {"\x1f\xff"s, "\xff\xff"s}) {
        RecordingLog log;
        Connection connection;
        connection.onDisconnect = [&] { EXPECT_EQ(connection.IsOpen(), 0); };
        connection.Receive(Frame("good") + header + Frame("later"));
        EXPECT_THAT(connection.packets, ElementsAre("good"));
        EXPECT_EQ(connection.disconnects, 1);
        EXPECT_EQ(connection.m_flags, 0u);
        EXPECT_EQ(log.Text(), "Invalid packet size; disconnecting\n");
    }
}

TEST(ReceivePacket, DeliversWhatHadArrivedBeforeItWasClosed) {
    RecordingLog log;
    Connection connection;
    connection.onPacket = [&](auto& packet) {
        if (packet == "last") connection.Close();
    };
    connection.Receive(Frame("first") + Frame("last") + Frame("more") + "\xff\xff junk");
    EXPECT_THAT(connection.packets, ElementsAre("first", "last", "more"));
    EXPECT_EQ(connection.disconnects, 0) << "what was closed here is not lost";
    EXPECT_EQ(log.Text(), "");
}

TEST(ReceivePacket, ForgetsTheOldConnectionWhenAPacketStartsANewOne) {
    // Behind the packet, a part of another, or as much as the buffer holds.
    for (const auto& rest : {Frame("stale") + "\0"s, Frame(SeededBytes(8000, 3)) + "\x01"s}) {
        Connection connection;
        TestListener second;
        connection.onPacket = [&](auto& packet) {
            if (packet == "move") connection.Take(&second);
        };
        connection.Receive(Frame("move") + rest + std::string(kMaxFrame, '\0'));
        EXPECT_THAT(connection.packets, ElementsAre("move"));
        second.Say(Frame("fresh"));
        Await(connection.m_fd, IO_READ);
        connection.OnReadable();
        EXPECT_THAT(connection.packets, ElementsAre("move", "fresh"));
        EXPECT_EQ(connection.disconnects, 0);
    }
}

TEST(ReceivePacket, LeavesTheClosedConnectionToItsOwner) {
    Connection connection;
    TestListener second;
    connection.Receive(Frame("last") + "\0"s);
    connection.server.Hang();
    Await(connection.m_fd, IO_READ);
    connection.OnReadable();
    EXPECT_EQ(connection.disconnects, 1);
    EXPECT_EQ(connection.IsOpen(), 1);
    EXPECT_NE(connection.m_flags, 0u);
    connection.onDisconnect = [&] { connection.Take(&second); };
    connection.OnReadable();
    connection.OnReadable();
    EXPECT_EQ(connection.disconnects, 2) << "the new connection has nothing to read yet";
}

}  // namespace
