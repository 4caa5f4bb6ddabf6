// Clients that mean harm to the update server: the others finish meanwhile, its memory stays
// bounded, and what they held is released.

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/support/memory_use.h"
#include "tests/support/relay.h"
#include "tests/support/served_game.h"

namespace {

namespace fs = std::filesystem;
using std::string_literals::operator""s;

// A blocking connection to the server, which sends anything.
class RawSocket {
public:
    RawSocket() : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(kUpdatePort);
        address.sin_addr.s_addr = inet_addr("127.0.0.1");
        EXPECT_EQ(connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    RawSocket(RawSocket&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    ~RawSocket() {
        if (m_fd != -1) close(m_fd);
    }

    void SendBytes(const std::string& bytes) const {
        send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    void Send(const std::string& payload) const { SendBytes(FrameOf(payload)); }
    // The payload of the next reply; empty when the server has hung up.
    std::string Receive() const {
        uint8_t header[kFrameHeaderSize];
        if (recv(m_fd, header, sizeof header, MSG_WAITALL) != sizeof header) return "";
        std::string payload(static_cast<size_t>(FramePayloadLength(header)), '\0');
        recv(m_fd, payload.data(), payload.size(), MSG_WAITALL);
        return payload;
    }
    // Says no more, and waits until the server has hung up.
    void Finish() const {
        shutdown(m_fd, SHUT_WR);
        char piece[4096];
        while (recv(m_fd, piece, sizeof piece, 0) > 0) continue;
    }

private:
    int m_fd;
};

class HostileClient : public StoreTest {
protected:
    HostileClient() {
        Publish("1.0", game);
        server = std::make_unique<ServingProgram>(StorePath());
        ExpectHonestClientServed();  // the server has loaded what it needs for one
        descriptors = server->SettledDescriptors();
        memory = ResidentKilobytes(server->Pid());
    }

    void ExpectHonestClientServed() {
        fs::current_path(scratch.Path());
        fs::remove_all("home");
        fs::create_directory("home");
        fs::current_path("home");
        RecordingLog log;
        EventLoop loop;
        Player player(&loop);
        player.progress.onFinished = [&loop](int32_t) { loop.Stop(0); };
        player.Start();
        loop.Run();
        ExpectTree(game);
        server->AwaitLines(" s\n", 1);
    }

    // Prints what the server has taken for each of `clients`.
    void ExpectMemory(const char* what, long clients, long mostKilobytes) {
        const long grown = ResidentKilobytes(server->Pid()) - memory;
        printf("%s: %.1f KiB for each of %ld\n", what, double(grown) / double(clients), clients);
        if (kMeasuresMemory) {
            EXPECT_LT(grown, clients * mostKilobytes);
        }
    }

    void ExpectReleased() { EXPECT_EQ(server->SettledDescriptors(), descriptors); }

    const Tree game = [] {
        Tree tree = FirstGame();
        tree["linux64/big"] = SeededBytes(12 << 20, 1);
        return tree;
    }();
    std::unique_ptr<ServingProgram> server;
    long descriptors = 0, memory = 0;
};

TEST_F(HostileClient, MayHoldFiveHundredConnectionsWithHalfAFrame) {
    {
        std::vector<RawSocket> crowd(500);
        for (size_t i = 0; i < crowd.size(); ++i) {
            crowd[i].Send("PVERA");  // who says nothing is not logged
            crowd[i].SendBytes(("\x1f\xfe" + std::string(8190, 'x')).substr(0, 1 + i * 16));
        }
        ExpectHonestClientServed();
        ExpectMemory("half a frame", 500, 32);
        EXPECT_GE(OpenDescriptors(server->Pid()), 500 + descriptors);
    }
    server->AwaitLines("hung up early", 500);
    ExpectReleased();
}

TEST_F(HostileClient, MayStopReading) {
    constexpr int kCrowd = 31;  // leaves one slot
    {
        std::vector<RawSocket> crowd(kCrowd);
        for (const RawSocket& client : crowd) {
            for (const auto& word : {"PVERA"s, "ARCHlinux64\0"s, "GETV"s}) client.Send(word);
            while (client.Receive()[0] != '\0') continue;
            client.Send("FULLlinux64/big\0"s);
            client.Receive();
            client.Send("REQD");
            EXPECT_EQ(client.Receive()[0], 1);
            client.Send("DOWN");
        }
        ExpectHonestClientServed();
        ExpectMemory("stream not read", kCrowd, 512);
    }
    server->AwaitLines("hung up early", kCrowd);
    ExpectReleased();
}

TEST_F(HostileClient, MaySayAnythingInAnyOrder) {
    std::vector<std::vector<std::string>> conversations;
    const std::string words[] = {"PVERA",
                                 "ARCHlinux64\0"s,
                                 "MOTD",
                                 "GETV",
                                 "CSUM1.0\0linux64/halcyrix\0"s,
                                 "FULLlinux64/halcyrix\0"s,
                                 "PATC1.0\0linux64/halcyrix\0"s,
                                 "RSUM\1\0\0\0\0\0\0\0"s,
                                 "REQD",
                                 "DOWN"};
    const std::vector<std::string> beginnings[] = {
        {}, {"PVERA", "ARCHlinux64\0"s}, {"PVERA", "ARCHlinux64\0"s, "GETV"}};
    for (const auto& beginning : beginnings) {
        for (int order = 0; order < 1000; ++order) {
            auto& conversation = conversations.emplace_back(beginning);
            for (const int word : {order / 100, order / 10 % 10, order % 10}) {
                conversation.push_back(words[word]);
            }
        }
    }
    for (const std::string& name :
         {"linux64/../../../etc/passwd"s, "../x"s, "/etc/passwd"s, "linux64//etc/passwd"s,
          "linux64/."s, "."s, ""s, "%s%n"s, std::string(8000, 'n'), "linux64/\xff"s}) {
        for (const char* tag : {"FULL", "CSUM1.0", "PATC1.0", "CSUM../../x", "PATC\xff"}) {
            const std::string version = tag + 4 == ""s ? "" : "\0"s;
            conversations.push_back(beginnings[2]);
            conversations.back().push_back(tag + version + name + '\0');
        }
        conversations.push_back({"PVERA", "ARCH" + name + '\0', "GETV"});
    }
    for (unsigned seed = 0; seed < 200; ++seed) {
        conversations.push_back({SeededBytes(seed * 40, seed), SeededBytes(seed, seed + 1)});
    }
    for (const auto& conversation : conversations) {
        const RawSocket client;
        for (const std::string& word : conversation) client.Send(word);
        client.Finish();
    }
    for (unsigned seed = 0; seed < 200; ++seed) {
        const RawSocket client;
        client.Send("PVERA");
        client.SendBytes(SeededBytes(seed * 100, seed));
        client.Finish();
    }
    printf("%zu conversations\n", conversations.size() + 200);
    server->AwaitLines(" s", static_cast<int>(conversations.size()) + 200);
    ExpectHonestClientServed();
    ExpectReleased();
    ExpectMemory("past conversations", static_cast<long>(conversations.size()), 1);
}

}  // namespace
