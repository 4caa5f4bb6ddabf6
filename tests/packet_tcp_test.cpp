#include "net/packet_tcp.h"

#include <gmock/gmock.h>

#include <functional>

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

// A connection to a listener.
class Connection : public RXPacketTCP {
public:
    explicit Connection(TestListener* listener) { ConnectTo(listener); }

    void ConnectTo(TestListener* listener) {
        ASSERT_EQ(Connect("127.0.0.1", listener->Port()), 1);
        server = listener;
        server->OnReadable();
    }
    void Receive(const std::string& bytes) {
        server->Say(bytes);
        Await(m_fd, IO_READ);
        OnReadable();
    }
    void OnPacket(const uint8_t* data, int length) override {
        packets.emplace_back(data, data + length);
        onPacket(packets.back());
    }
    void OnDisconnect() override { ++disconnects; }

    TestListener* server;
    std::vector<std::string> packets;
    int disconnects = 0;
    std::function<void(const std::string&)> onPacket = [](auto&) {};
};

class Packets : public testing::Test {
protected:
    RecordingLog log;
    TestListener server;
    Connection connection{&server};
};

TEST_F(Packets, AreFramedUpToTheLargestPayload) {
    const std::string payload = SeededBytes(8191, 1);
    EXPECT_EQ(connection.SendPacket(payload.data(), 8190), 1);
    EXPECT_EQ(server.Hear(8192), Frame(payload.substr(0, 8190)));
    EXPECT_EQ(connection.SendPacket(payload.data(), 8191), 0);
    EXPECT_EQ(log.Text(), "SendPacket: packet too large\n");
    connection.Close();
    EXPECT_EQ(server.Hear(1), "") << "nothing of the large packet was sent";
}

TEST_F(Packets, ArePutTogetherHoweverTheyArrive) {
    std::vector<std::string> sent;
    std::string stream;
    for (const size_t size : {3, 0, 8190, 1, 8190, 8190, 700, 0}) {
        sent.push_back(SeededBytes(size, static_cast<unsigned>(sent.size())));
        stream += Frame(sent.back());
    }
    for (const size_t piece : {size_t{1}, size_t{4096}, stream.size()}) {
        connection.packets.clear();
        for (size_t at = 0; at < stream.size(); at += piece) {
            connection.Receive(stream.substr(at, piece));
        }
        while (connection.packets.size() < sent.size()) {
            Await(connection.m_fd, IO_READ);
            connection.OnReadable();
        }
        EXPECT_EQ(connection.packets, sent) << "in pieces of " << piece;
    }
}

TEST_F(Packets, EndAtAnInvalidLength) {
    connection.Receive(Frame("good") + "\x1f\xff" + Frame("later"));
    EXPECT_THAT(connection.packets, ElementsAre("good"));
    EXPECT_EQ(connection.disconnects, 1);
    EXPECT_EQ(connection.IsOpen(), 0);
}

TEST_F(Packets, ThatHadArrivedAreDeliveredAfterAClose) {
    connection.onPacket = [&](auto&) { connection.Close(); };
    connection.Receive(Frame("last") + Frame("more") + "\xff\xff junk");
    EXPECT_THAT(connection.packets, ElementsAre("last", "more"));
    EXPECT_EQ(connection.disconnects, 1);
    EXPECT_EQ(log.Text(), "Invalid packet size; disconnecting\n");
}

TEST_F(Packets, OfTheOldConnectionAreForgottenWhenOneStartsANewOne) {
    // Behind the packet, a part of another, or as much as the buffer holds.
    for (const auto& rest : {Frame("stale") + "\0"s, Frame(SeededBytes(8000, 3)) + "\x01"s}) {
        TestListener second;
        connection.packets.clear();
        connection.ConnectTo(&server);
        connection.onPacket = [&](auto& packet) {
            if (packet == "move") connection.ConnectTo(&second);
        };
        connection.Receive(Frame("move") + rest + std::string(kMaxFrame, '\0'));
        connection.Receive(Frame("fresh"));
        EXPECT_THAT(connection.packets, ElementsAre("move", "fresh"));
        EXPECT_EQ(connection.disconnects, 0);
    }
}

}  // namespace
