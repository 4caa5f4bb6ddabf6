// The update server as its clients and its operators see it.
#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <list>
#include <thread>

#include "serve/update_server.h"
#include "tests/support/game.h"
#include "tests/support/relay.h"
#include "tests/support/session.h"

namespace {

using std::string_literals::operator""s;
using testing::HasSubstr;
using Words = std::vector<std::string>;

const std::string kHungUp = "(hung up)";
const std::string kReady = "\1\0\0\0\0\0\0"s;
const std::string kEndOfList(1, '\0');
const std::string kBig = "linux64/big\0"s;

// What is said to the first of the line, or to another.
std::string Place(char place, char length) {
    return {'\0', place, '\0', length, '\0', '\0', '\0'};
}

std::string FramesOf(const Words& words) {
    std::string frames;
    for (const std::string& word : words) frames += FrameOf(word);
    return frames;
}

// A client that says anything.
class Peer {
public:
    explicit Peer(const Words& words = {}, const std::string& own = "127.0.0.9") {
        sockaddr_in from{AF_INET, 0, {inet_addr(own.c_str())}, {}};
        sockaddr_in to{AF_INET, htons(kUpdatePort), {inet_addr("127.0.0.1")}, {}};
        const timeval patience{10, 0};
        setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        bind(m_fd, reinterpret_cast<sockaddr*>(&from), sizeof from);
        connected = connect(m_fd, reinterpret_cast<sockaddr*>(&to), sizeof to) == 0;
        Send(FramesOf(words));
    }
    ~Peer() { close(m_fd); }
    Peer(const Peer&) = delete;

    void Send(const std::string& bytes) { send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    // The payload of the next packet.
    std::string Hear() {
        uint8_t header[kFrameHeaderSize];
        const ssize_t got = recv(m_fd, header, sizeof header, MSG_WAITALL);
        if (got != sizeof header) return got == -1 && errno == EAGAIN ? "(silence)" : kHungUp;
        std::string payload(static_cast<size_t>(FramePayloadLength(header)), '\0');
        recv(m_fd, payload.data(), payload.size(), MSG_WAITALL);
        return payload;
    }
    // Hears packets until this one.
    void Await(const std::string& payload) {
        std::string heard = Hear();
        while (heard != payload && heard != kHungUp && heard != "(silence)") heard = Hear();
        EXPECT_EQ(heard, payload);
    }
    std::string Ask(const std::string& request) {
        Send(FrameOf(request));
        return Hear();
    }
    // Greets and hears the list; returns the version.
    std::string AskList() {
        Send(FramesOf({"PVERA", "ARCHlinux64\0"s}));
        const std::string version = Ask("GETV");
        if (version != kHungUp) Await(kEndOfList);
        return version;
    }
    // Asks for a file and joins the queue; returns what the server says to that.
    std::string Queue() {
        AskList();
        Ask("FULL" + kBig);
        return Ask("REQD");
    }

    bool connected;

private:
    int m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

class ServeTest : public GameTest {
protected:
    ServeTest() { Publish("1.0", {{"linux64/big", SeededBytes(12 << 20, 1)}, {"common/x", "x"}}); }
};

TEST_F(ServeTest, TellsTheLogHowEachSessionEnded) {
    const std::string broke = "dropped: broke the protocol", long256(256, 'c');
    const struct {
        bool hasList;
        Words words;
        std::string told;
    } kCases[] = {
        {false, {"GET / HTTP/1.0"}, " never greeted: broke the protocol"},
        {false, {"PVERA", "GETV"}, broke},
        {false, {"PVERA", "PVERA"}, broke},
        {false, {"PVERA", "ARCHlinux64"}, broke},
        {false, {"PVERA", "ARCH../x\0"s}, broke},
        {false, {"PVERA", "ARCH" + long256 + '\0'}, broke},
        {false, {"PVERA", "ARCHlinux64\0"s, "FULL" + kBig}, broke},
        {false, {"PVERA", "ARCHlinux64\0"s, "MOTD", "MOTD"}, broke},
        {false,
         {"PVERA", "ARCHlinux65\0"s, "GETV"},
         " linux65 - -> -: 0 files, 0 bytes, 0.0 s; "
         "dropped: asked for a component that is not published"},
        {true, {""}, " linux64 - -> 1.0: 0 files, "},
        {true, {"RSUM\0\0\0\1\0\0\0\0"s}, broke},
        {true, {"FULLcommon/x\0"s}, broke},
        {true, {"FULLlinux64/../x\0"s}, broke},
        {true, {"FULL" + kBig, "FULL" + kBig}, broke},
        {true, {"DOWN"}, broke},
        {true, {"FULL" + kBig, "REQD", "DOWN", "DOWN"}, broke},
        {true, {"CSUM%s\x1b\0"s + kBig, "GETV"}, " linux64 ? -> 1.0: 0 files, "},
    };
    ServingProgram server(StorePath(), "127.0.0.1");
    for (const auto& [hasList, words, told] : kCases) {
        Peer peer;
        if (hasList) peer.AskList();
        peer.Send(FramesOf(words));
        peer.Await(kHungUp);
        server.AwaitWords(told);
    }
}

TEST_F(ServeTest, SendsTheMessageAndTheFilesOfAPlayer) {
    const std::string message = std::string(20000, 'm');
    WriteFile("../motd", message + '\0' + "hidden");
    ServingProgram server(StorePath(), "127.0.0.1", {"--motd", "../motd", "--client-rate", "9M"});
    Session session;
    ASSERT_EQ(session.StartGame(), 1);
    const auto began = Clock::now();
    EXPECT_EQ(session.Run(), 2);
    EXPECT_GT(Clock::now() - began, Milliseconds(1000)) << "12 MB, at 9 a second";
    EXPECT_TRUE(session.log.Has(message));
    EXPECT_FALSE(session.log.Has("hidden"));
    server.AwaitWords(" linux64+common - -> 1.0: 2 files, 126");
}

TEST_F(ServeTest, TakesBackAReleaseWhoseFilesChange) {
    Publish("1.1", {{"linux64/big", "small now"}, {"common/x", "x"}});
    ServingProgram server(StorePath(), "127.0.0.1");
    Peer peer;
    EXPECT_EQ(peer.Queue(), kReady);
    WriteFile(StorePath() + "/releases/000002/files/linux64/big", "smaller");
    EXPECT_EQ(peer.Ask("DOWN"), kHungUp);
    server.AwaitWords("dropped: cannot read a file as it was published");
    EXPECT_EQ(Peer().AskList(), "1.0");
}

TEST_F(ServeTest, ServesInOrderAndTellsThePlaces) {
    const ServingProgram server(StorePath(), "127.0.0.1", {"--slots", "1"});
    auto holder = std::make_unique<Peer>(), second = std::make_unique<Peer>();
    Peer first, third;
    EXPECT_EQ(holder->Queue(), kReady);
    EXPECT_EQ(first.Queue(), Place(0, 1));
    EXPECT_EQ(second->Queue(), Place(1, 2));
    EXPECT_EQ(third.Queue(), Place(2, 3));
    EXPECT_EQ(third.Hear(), Place(2, 3)) << "again, in the next second";
    holder.reset();
    first.Await(kReady);
    third.Await(Place(1, 2));
    second.reset();
    third.Await(Place(0, 1));
}

TEST(DownloadQueue, ReckonsTheRateFromTheLatestDownloads) {
    DownloadQueue queue(2);
    EXPECT_EQ(queue.Rate(), 0);
    queue.CountDuration(Milliseconds(0));
    EXPECT_EQ(queue.Rate(), UINT16_MAX);
    for (int i = 0; i < 32; ++i) queue.CountDuration(Milliseconds(10'000));
    EXPECT_EQ(queue.Rate(), 20) << "two slots, ten seconds each";
}

// But a client that checks its files may be silent.
TEST_F(ServeTest, WaitsForNobodyWithoutAnEnd) {
    for (const bool byRate : {true, false}) {
        ServerOptions options;
        options.slots = 1;
        options.greetingLimit = options.readyLimit = Milliseconds(200);
        options.rateWindow = byRate ? Milliseconds(400) : Milliseconds(60'000);
        options.ackLimit = byRate ? Milliseconds(60'000) : Milliseconds(1000);
        RecordingLog log;
        std::string error;
        const auto store = Store::Open(StorePath(), &error);
        const auto server = UpdateServer::Open(store.get(), options, &error);
        std::thread running([&server] { server->Run(); });
        Peer checking, silent, early({"PVERA", "ARCHlinux64\0"s}), ready, unread;
        checking.AskList();
        EXPECT_EQ(ready.Queue(), kReady);
        EXPECT_EQ(unread.Queue(), Place(0, 1));
        for (Peer* late : {&silent, &early, &ready}) late->Await(kHungUp);
        unread.Await(kReady);
        unread.Ask("DOWN");
        auto next = std::make_unique<Peer>();
        next->Queue();
        next->Await(kReady);
        next.reset();
        EXPECT_EQ(checking.Ask("RSUM"), kHungUp) << "not before";
        kill(getpid(), SIGTERM);
        running.join();
        EXPECT_EQ(log.Count("too slow"), byRate ? 4 : 3) << log.Text();
        EXPECT_EQ(log.Count("acknowledges nothing any more"), byRate ? 0 : 1) << log.Text();
        EXPECT_EQ(log.Count("dropped: broke the protocol"), 1) << log.Text();
    }
}

TEST_F(ServeTest, LetsDownloadsEndWhenItStops) {
    const struct {
        const char* drain;
        int signal, again;
        bool completes;
    } kCases[] = {
        {"30", SIGTERM, 0, true}, {"30", SIGINT, SIGTERM, false}, {"1", SIGTERM, 0, false}};
    for (const auto& [drain, signal, again, completes] : kCases) {
        ServingProgram server(StorePath(), "127.0.0.1", {"--slots", "1", "--drain", drain});
        Peer loading, waiting;
        loading.Queue();
        EXPECT_EQ(loading.Ask("DOWN").size(), 16u);
        kill(server.Pid(), SIGHUP);
        EXPECT_EQ(waiting.Queue(), Place(0, 1));
        kill(server.Pid(), signal);
        waiting.Await(kHungUp);
        EXPECT_FALSE(Peer().connected);
        if (again != 0) kill(server.Pid(), again);
        loading.Await(completes ? "\xff\xff\xff\xff" + std::string(12, '\0') : kHungUp);
        EXPECT_EQ(server.Wait(), 0);
    }
}

TEST_F(ServeTest, HasItsLimitsAndTellsThemInItsMetrics) {
    const auto fewDescriptors = [] {
        const rlimit limit{68, 68};  // for three clients and a slot
        setrlimit(RLIMIT_NOFILE, &limit);
    };
    const Words command = {RELEASE_TOOL, "serve", StorePath(),     "--metrics", "127.0.0.1:9100",
                           "--slots",    "1",     "--per-address", "2"};
    Program server(command, fewDescriptors);
    server.AwaitWords("serving 1 releases");
    std::list<Peer> peers(3);
    EXPECT_EQ(peers.back().Hear(), kHungUp);
    server.AwaitWords("refused: its address has its share of 2");
    peers.emplace_back(Words{}, "127.0.0.8").AskList();
    EXPECT_EQ(Peer({}, "127.0.0.7").Hear(), kHungUp);
    server.AwaitWords("refused: 3 clients are served, and no more can be");

    std::string said;
    const std::string look = "curl -sS http://127.0.0.1:9100/metrics | tee ../page | ";
    EXPECT_EQ(RunProgram({"sh", "-c", look + "promtool check metrics"}, &said), 0);
    EXPECT_EQ(said, "");
    for (const char* line :
         {"halcyrix_sessions{state=\"connected\"} 2\n", "{state=\"negotiating\"} 1\n",
          "{cause=\"over_share\"} 1\n", "{cause=\"refused\"} 1\n", "halcyrix_damaged_releases 0\n",
          "served_release_info{component=\"common\",version=\"1.0\"} 1\n"}) {
        EXPECT_THAT(ReadFile("../page"), HasSubstr(line));
    }
    Program other(command);
    EXPECT_EQ(other.Wait(), 1);
    other.AwaitWords("cannot listen on 0.0.0.0:21024: Address already in use");
}

TEST_F(ServeTest, StaysSmallAndServesWhileACrowdMeansHarm) {
    ServingProgram server(StorePath(), "127.0.0.1");
    const auto resident = [&server] {
        const std::string status = ReadFile("/proc/" + std::to_string(server.Pid()) + "/status");
        return std::stol(status.substr(status.find("VmRSS:") + 6));  // KiB
    };
    Peer().Queue();
    const long before = resident();
    std::list<Peer> crowd;
    const std::string half = "\x1f\xfe" + std::string(4000, 'x');
    for (int i = 0; i < 600; ++i) {
        Peer& peer = crowd.emplace_back(Words{}, "127.0.1." + std::to_string(1 + i / 90));
        if (i % 3 == 0) peer.Send(half);
        if (i % 3 == 1) peer.Queue();
        if (i % 3 == 2) peer.Send(FramesOf(Words(500, "PVERA")));
    }
    for (Peer& peer : crowd) peer.Send("");
    EXPECT_EQ(Peer().AskList(), "1.0");
    EXPECT_LT(resident() - before, 200 * 20 + 200 * 4);
}

TEST_F(ServeTest, GoesOnWhenNobodyTakesItsLog) {
    const auto blockLog = [] {
        int ends[2];
        if (pipe(ends) != 0) abort();
        fcntl(ends[1], F_SETPIPE_SZ, 4096);
        dup2(ends[1], STDOUT_FILENO);
    };
    const Program server({RELEASE_TOOL, "serve", StorePath()}, blockLog);
    while (!Peer().connected) std::this_thread::yield();
    for (int i = 0; i < 100; ++i) Peer({"PVERA", "?"}).Await(kHungUp);
    EXPECT_EQ(Peer().AskList(), "1.0");
}

}  // namespace
