// The update server as its clients and its operators see it.

#include "serve/proxy_header.h"
#include "serve/update_server.h"
#include "tests/support/game.h"
#include "tests/support/relay.h"
#include "tests/support/session.h"

namespace {

using std::string_literals::operator""s;
using Words = std::vector<std::string>;

const std::string kHungUp = "(hung up)";
const std::string kReady = "\1\0\0\0\0\0\0"s;
const std::string kBig = "linux64/big\0"s;

std::string Place(char place, char length) { return {'\0', place, '\0', length, '\0', '\0', '\0'}; }

// A client that says anything.
class Peer {
public:
    explicit Peer(const std::string& own = "127.0.0.9", uint16_t port = kUpdatePort) {
        sockaddr_in from{AF_INET, 0, {inet_addr(own.c_str())}, {}};
        sockaddr_in to{AF_INET, htons(port), {inet_addr("127.0.0.1")}, {}};
        bind(m_fd, reinterpret_cast<sockaddr*>(&from), sizeof from);
        std::ignore = connect(m_fd, reinterpret_cast<sockaddr*>(&to), sizeof to);
    }
    ~Peer() { close(m_fd); }
    Peer(const Peer&) = delete;

    void Send(const std::string& bytes) { send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    void Say(const Words& words) {
        std::string frames;
        for (const std::string& word : words) frames += FrameOf(word);
        Send(frames);
    }
    std::string Hear() { return ReadPacket(m_fd).value_or(kHungUp); }
    // Hears packets until this one.
    void Await(const std::string& payload) {
        std::string heard = Hear();
        while (heard != payload && heard != kHungUp) heard = Hear();
        EXPECT_EQ(heard, payload);
    }
    std::string Ask(const std::string& request) {
        Say({request});
        return Hear();
    }
    // Greets and hears the list; returns the version.
    std::string AskList() {
        Say({"PVERA", "ARCHlinux64\0"s});
        const std::string version = Ask("GETV");
        Await("\0"s);
        return version;
    }
    // Asks for a file and joins the queue; returns what the server says to that.
    std::string Queue() {
        AskList();
        Ask("FULL" + kBig);
        return Ask("REQD");
    }

private:
    int m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

class ServeTest : public GameTest {
protected:
    ServeTest() { Publish("1.0", {{"linux64/big", SeededBytes(12 << 20, 1)}, {"common/x", "x"}}); }
};

TEST_F(ServeTest, TellsTheLogHowEachSessionEnded) {
    const std::string broke = "dropped: broke the protocol", big = "FULL" + kBig;
    // Whether it has the list, what it says, and what is told.
    const std::tuple<bool, Words, std::string> kCases[] = {
        {false, {"GET / HTTP/1.0"}, " never greeted: broke the protocol"},
        {false, {"PVERA", "GETV"}, broke},
        {false, {"PVERA", "ARCHx\n\0"s}, " - - -> -: 0 files, 0 bytes, 0.0 s; " + broke},
        {false, {"PVERA", "ARCH" + std::string(256, 'c') + '\0'}, broke},
        {false, {"PVERA", "ARCHlinux64\0"s, big}, broke},
        {false, {"PVERA", "ARCHlinux64\0"s, "MOTD", "MOTD"}, "../no?motd: No such file"},
        {false, {"PVERA", "ARCHlinux65\0"s, "GETV"}, "dropped: asked for a component that is not"},
        {true, {"RSUM\0\0\0\1\0\0\0\0"s}, broke},
        {true, {"FULLcommon/x\0"s}, broke},
        {true, {big, big}, broke},
        {true, {"DOWN"}, broke},
        {true, {big, "REQD", "DOWN", "DOWN"}, broke},
        {true, {"CSUM%s\x1b\0"s + kBig, "GETV"}, " linux64 ? -> 1.0: 0 files, "},
    };
    ServingProgram server(StorePath(), "127.0.0.1", {"--motd", "../no\nmotd"});
    for (const auto& [hasList, words, told] : kCases) {
        Peer peer;
        if (hasList) peer.AskList();
        peer.Say(words);
        peer.Await(kHungUp);
        server.AwaitWords(told);
    }
}

TEST_F(ServeTest, SendsTheMessageAndWholeFilesInTime) {
    WriteFile("../motd", std::string(20000, 'm') + '\0' + "hidden");
    ServingProgram server(StorePath(), "127.0.0.1", {"--motd", "../motd", "--client-rate", "9M"});
    Session session;
    const auto began = Clock::now();
    EXPECT_EQ(session.RunGame(), 2);
    EXPECT_GT(Clock::now() - began, Milliseconds(1000)) << "12 MB, at 9 a second";
    EXPECT_TRUE(session.log.Has(std::string(20000, 'm')));
    EXPECT_FALSE(session.log.Has("hidden"));
    server.AwaitWords(" linux64+common - -> 1.0: 2 files, 126");

    Publish("1.1", {{"linux64/big", "small now"}, {"common/x", "x"}});
    Peer peer;
    EXPECT_EQ(peer.Queue(), kReady);
    WriteFile(StorePath() + "/releases/000002/files/linux64/big", "smaller");
    EXPECT_EQ(peer.Ask("DOWN"), kHungUp);
    server.AwaitWords("dropped: cannot read a file as it was published");
    EXPECT_EQ(Peer().AskList(), "1.0") << "the newest good one";
}

TEST_F(ServeTest, ServesInOrderAndTellsThePlacesAndTheRate) {
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

    // What it reckons with are the latest downloads.
    DownloadQueue queue(2);
    queue.CountDuration(Milliseconds(0));
    EXPECT_EQ(queue.Rate(), UINT16_MAX);
    for (int i = 0; i < 32; ++i) queue.CountDuration(Milliseconds(10'000));
    EXPECT_EQ(queue.Rate(), 20) << "two slots, ten seconds each";
}

TEST_F(ServeTest, DropsSilentClientsButNotWhileTheyCheckFiles) {
    for (const bool byRate : {true, false}) {
        ServerOptions options;
        options.slots = 1;
        options.proxies = {"127.0.0.7"};
        options.greetingLimit = options.readyLimit = Milliseconds(200);
        (byRate ? options.rateWindow : options.ackLimit) = Milliseconds(1000);
        RecordingLog log;
        std::string error;
        const auto store = Store::Open(StorePath(), &error);
        const auto server = UpdateServer::Open(store.get(), options, &error);
        std::thread running([&server] { server->Run(); });
        Peer checking, silent(byRate ? "127.0.0.7" : "127.0.0.8"), early, ready, unread;
        checking.AskList();
        early.Say({"PVERA", "ARCHlinux64\0"s});
        EXPECT_EQ(ready.Queue(), kReady);
        EXPECT_EQ(unread.Queue(), Place(0, 1));
        for (Peer* late : {&silent, &early, &ready}) late->Await(kHungUp);
        unread.Await(kReady);
        unread.Ask("DOWN");
        Peer next;
        next.Queue();
        next.Await(kReady);
        EXPECT_EQ(checking.Ask("RSUM"), kHungUp) << "not before";
        for (int i = 0; i < 2; ++i) kill(getpid(), SIGTERM);
        running.join();
        const std::string cause = byRate ? "no PROXY header" : "too slow";
        EXPECT_TRUE(log.Has(" never greeted: " + cause)) << log.Text();
        EXPECT_EQ(log.Count("dropped: too slow"), byRate ? 3 : 2) << log.Text();
        EXPECT_EQ(log.Count("acknowledges nothing any more"), byRate ? 0 : 1) << log.Text();
    }
}

TEST_F(ServeTest, LetsDownloadsEndWhenItStops) {
    const std::string end = "\xff\xff\xff\xff" + std::string(12, '\0');
    const std::tuple<std::string, int, int, std::string> kCases[] = {
        {"30", SIGTERM, SIGHUP, end}, {"30", SIGINT, SIGTERM, kHungUp}, {"1", SIGINT, 0, kHungUp}};
    for (const auto& [drain, signal, again, last] : kCases) {
        ServingProgram server(StorePath(), "127.0.0.1",
                              {"--slots", "1", "--total-rate", "6M", "--drain", drain});
        const auto began = Clock::now();
        Peer loading, waiting;
        loading.Queue();
        EXPECT_EQ(loading.Ask("DOWN").size(), 16u);
        kill(server.Pid(), SIGHUP);
        EXPECT_EQ(waiting.Queue(), Place(0, 1));
        kill(server.Pid(), signal);
        waiting.Await(kHungUp);
        EXPECT_EQ(Peer().Hear(), kHungUp);
        kill(server.Pid(), again);
        loading.Await(last);
        EXPECT_TRUE(last != end || Clock::now() - began > Milliseconds(1500))
            << "12 MB, at 6 a second";
        EXPECT_EQ(server.Wait(), 0);
    }
}

TEST_F(ServeTest, BelievesTheHeadersOfItsProxiesAlone) {
    const std::string text = "PROXY TCP4 10.1.2.3 127.0.0.1 258 21024", line = text + "\r\n";
    const std::string binary = "\r\n\r\n\0\r\nQUIT\n"s, ends = "\xa\1\2\3\x7f\0\0\1\1\2\x52\x20"s;
    // What is received, the header's length, -1 for none, and the client.
    const std::tuple<std::string, int, std::string> kCases[] = {
        {line + "\0\5PVERA"s, 41, "10.1.2.3:258"},
        {binary + "\x21\x11\0\xc"s + ends + "\0\5"s, 28, "10.1.2.3:258"},
        {binary + "\x20\x11\0\xc"s + ends, 28, ""},
        {binary + "\x21\x21\0\x24"s + std::string(36, 'x'), 52, ""},
        {"PROXY UNKNOWN " + std::string(91, 'x') + "\r\n", 107, ""},
        {text + " more\r\n", -1, ""},
        {"PROXY TCP4 10.1.2.3 127.0.0.1 65536 21024\r\n", -1, ""},
        {binary + "\x21\x11\0\xb"s + ends, -1, ""},
        {binary + "\x21\x11\x8\0"s + ends, -1, ""},
    };
    for (const auto& [received, length, client] : kCases) {
        for (size_t size = 0; length > 0 && size < static_cast<size_t>(length); ++size) {
            const auto part = ParseProxyHeader(received.substr(0, size));
            EXPECT_TRUE(part && part->length == 0) << received << size;
        }
        const auto header = ParseProxyHeader(received);
        EXPECT_EQ(header ? static_cast<int>(header->length) : -1, length) << received;
        const auto named = header ? header->client : std::nullopt;
        EXPECT_EQ(named ? AddressText(*named) : "", client) << received;
    }

    ServingProgram server(StorePath(), "127.0.0.1",
                          {"--proxy-protocol", "127.0.0.8/31", "--per-address", "1"});
    Peer first, second, check, bad, stranger("127.0.0.7");
    first.Send(line);
    EXPECT_EQ(first.AskList(), "1.0");
    for (Peer* next : {&second, &stranger}) {
        next->Send(line);
        EXPECT_EQ(next->Hear(), kHungUp);
        server.AwaitWords(next == &second ? "10.1.2.3:258 never greeted: its address has its share"
                                          : " never greeted: broke the protocol");
    }
    check.Send("PROXY UNKNOWN\r\n");
    EXPECT_EQ(check.AskList(), "1.0");
    EXPECT_EQ(bad.Ask("PVERA"), kHungUp);
    server.AwaitWords("127.0.0.9:");
    server.AwaitWords(" never greeted: no PROXY header");
}

TEST_F(ServeTest, HasItsLimitsAndTellsThemInItsMetrics) {
    const std::string options = " serve --slots 1 --per-address 2 --metrics 127.0.0.1:9100 ";
    Publish("1.1", {{"linux64/big", SeededBytes(9000, 1)}, {"common/x", "x"}});
    // Room for three clients and a slot.
    const Words command = {
        "sh", "-c", "ulimit -n 68; exec '" RELEASE_TOOL "'" + options + "'" + StorePath() + "'"};
    Program server(command);
    server.AwaitWords("serving 2 releases");
    WriteFile(StorePath() + "/releases/000007/manifest", "\"1\n");
    const auto allow = [&server](rlim_t descriptors) {
        const rlimit limit{descriptors, 68};
        EXPECT_EQ(prlimit(server.Pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
    };
    allow(3);
    Peer first;
    server.AwaitWords("cannot accept a connection: Too many open files");
    allow(68);
    first.AskList();
    auto nosy = std::make_unique<std::list<Peer>>();
    for (int i = 0; i < 100; ++i) nosy->emplace_back("127.0.0.6", 9100).Send("GET /");
    EXPECT_EQ(Peer().AskList(), "1.1");
    server.AwaitWords(" linux64 - -> 1.1: 0 files");
    Peer second;
    EXPECT_EQ(Peer().Hear(), kHungUp);
    server.AwaitWords("refused: its address has its share of 2");
    Peer third("127.0.0.8");
    EXPECT_EQ(third.Queue(), kReady);
    EXPECT_EQ(Peer("127.0.0.7").Hear(), kHungUp);
    server.AwaitWords("refused: 3 clients are served, and no more can be");

    nosy.reset();
    const std::string look = "curl -sS http://127.0.0.1:9100/metrics | tee ../page | ";
    EXPECT_EQ(RunProgram({"sh", "-c", look + "promtool check metrics"}), 0);
    for (const char* line :
         {"halcyrix_sessions{state=\"connected\"} 1\n", "refused\"} 1\n", "over_share\"} 1\n",
          "{state=\"negotiating\"} 1\n", "{state=\"ready\"} 1\n", "halcyrix_sessions_limit 3\n",
          "halcyrix_slots 1\n", "completed\"} 1\n", "halcyrix_wait_seconds_bucket{le=\"1\"} 1\n",
          "halcyrix_wait_seconds_count 1\n", "halcyrix_damaged_releases 1\n",
          "_damaged_release_info{release=\"000007\",reason=\"",
          "_release_info{component=\"common\",version=\"1.1\"} 1\n"}) {
        EXPECT_THAT(ReadFile("../page"), testing::HasSubstr(line));
    }
    Program other(command);
    EXPECT_EQ(other.Wait(), 1);
    other.AwaitWords("cannot listen on 0.0.0.0:21024: Address already in use");

    Awaiting("the browser");
    std::string shown;
    const char* const browser =
        "chromium --headless --no-sandbox --virtual-time-budget=5000 --dump-dom "
        "--user-data-dir=../browser http://127.0.0.1:9100/";
    if (RunProgram({"sh", "-c", browser}, &shown) == 127) GTEST_SKIP() << "there is no chromium";
    for (const char* part :
         {"Clients</dt><dd>3 of 3<", "line</dt><dd>0<",
          ">Damaged and passed over: ", "/000007/manifest: ", "<td>negotiating</td><td>1<",
          "<td>over share</td><td>0</td><td>1<", "<td>common</td><td>1.1<"}) {
        EXPECT_THAT(shown, testing::HasSubstr(part));
    }
}

TEST_F(ServeTest, StaysSmallAndServesACrowdThatMeansHarmWhileNobodyReadsItsLog) {
    ServingProgram server(StorePath(), "127.0.0.1");
    const auto resident = [&server] {
        const std::string status = ReadFile("/proc/" + std::to_string(server.Pid()) + "/status");
        return std::stol(status.substr(status.find("VmRSS:") + 6));  // KiB
    };
    Peer().Queue();
    [[maybe_unused]] const long before = resident();
    std::list<Peer> crowd;
    for (int i = 0; i < 600; ++i) {
        Peer& peer = crowd.emplace_back("127.0.1." + std::to_string(1 + i / 90));
        if (i % 3 == 0) peer.Send("\x1f\xfe" + std::string(4000, 'x'));
        if (i % 3 == 1) peer.Queue();
        if (i % 3 == 2) peer.Say(Words(500, "PVERA"));
    }
    EXPECT_EQ(Peer().AskList(), "1.0");
#ifndef __SANITIZE_ADDRESS__  // it keeps what is freed
    EXPECT_LT(resident() - before, 200 * 20 + 200 * 4);
#endif
    for (int i = 0; i < 4000; ++i) {  // more than a megabyte of lines
        Peer peer;
        peer.Say({"PVERA", "ARCH" + std::string(255, 'c') + '\0', "?"});
        peer.Await(kHungUp);
    }
    EXPECT_EQ(Peer().AskList(), "1.0");
}

TEST_F(GameTest, HasTheConversationThatTheProtocolShows) {
    const std::string song = "The quick brown fox jumps over the lazy dog";
    Publish("1.0", {{"common/song.txt", song}});
    Publish("1.1", {{"common/song.txt", song + "."}, {"common/new.txt", "hello"}});
    WriteFile("motd", "Welcome.\n");
    const ServingProgram server(StorePath(), "127.0.0.1", {"--motd", "motd"});
    std::ifstream document(SOURCE_DIR "/docs/protocol.md");
    Words frames;  // each behind the letter of who sends it
    std::string line;
    while (std::getline(document, line) && line != "```session") continue;
    while (std::getline(document, line) && line != "```") {
        if (line[0] != ' ') frames.emplace_back(1, line[0]);
        const size_t begin = line.find_first_not_of(' ', 1);
        std::istringstream digits(line.substr(begin, line.find("  ", begin) - begin));
        for (int byte; digits >> std::hex >> byte;) frames.back() += static_cast<char>(byte);
    }
    ASSERT_EQ(frames.size(), 25u);
    Peer peer;
    for (const std::string& frame : frames) {
        const std::string bytes = frame.substr(1);
        if (frame[0] == 'C') peer.Send(bytes);
        EXPECT_EQ(frame[0] == 'C' ? bytes : FrameOf(peer.Hear()), bytes);
    }
}

}  // namespace
