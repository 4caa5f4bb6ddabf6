// The update server and the update client, at work on real files.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "lib/checksum.h"
#include "serve/status_file.h"
#include "serve/update_server.h"
#include "tests/support/programs.h"
#include "tests/support/recorders.h"
#include "tests/support/served_game.h"
#include "update/update_client.h"

namespace {

namespace fs = std::filesystem;
using std::string_literals::operator""s;
using testing::HasSubstr;

class ServeTest : public StoreTest {};

TEST_F(ServeTest, InstallsPatchesAndRepairs) {
    const Tree first = FirstGame();
    const Tree second = Changed(first);
    Publish("1.0", first);
    WriteFile("home/keep", "the player's own");
    WriteFile("motd", "Hello.\n");
    fs::current_path("home");

    ServerOptions options = OnHost("127.0.0.1");
    options.motdFile = "../motd";
    const auto session = [&](const char* logged) {
        RecordingLog log;
        EventLoop loop;
        UpdateServer server(&loop, store.get(), options);
        Player player(&loop);
        const StopWhen done(&loop, [&] { return player.Done() && log.Has(" s\n"); });
        player.Start();
        loop.Run();
        EXPECT_TRUE(log.Has("Hello.\n"));
        EXPECT_THAT(log.Text(), HasSubstr(logged));
        EXPECT_FALSE(log.Has("dropped")) << log.Text();
        return player.progress;
    };
    session(" linux64+common - -> 1.0: 304 files, ");
    ExpectTree(first);

    Publish("1.1", second);
    const RecordingProgress update = session(" linux64+common 1.0 -> 1.1: 45 files, ");
    ExpectTree(second);
    EXPECT_THAT(update.statuses, testing::Contains("Patching halcyrix..."));
    EXPECT_FALSE(fs::exists("halcyrix.patches/0"));
    EXPECT_TRUE(fs::is_empty("halcyrix.patches"));

    fs::resize_file("halcyrix", 70000);
    WriteFile("data/5", "spoilt");
    const RecordingProgress repair = session(" linux64+common - -> 1.1: 2 files, ");
    EXPECT_EQ(repair.progress.front().first, 70000);
    ExpectTree(second);
    EXPECT_EQ(ReadFile("keep"), "the player's own");
    EXPECT_EQ(ReadFile("data/1"), first.at("common/data/1"));

    // A version that the server has forgotten is updated with whole files.
    Publish("1.2", first);
    ASSERT_EQ(RunProgram({RELEASE_TOOL, "prune", StorePath(), "--keep", "1"}, nullptr), 0);
    const RecordingProgress pruned = session(" linux64+common 1.1 -> 1.2: 44 files, ");
    ExpectTree(first);
    EXPECT_THAT(pruned.statuses, testing::Not(testing::Contains("Patching halcyrix...")));
}

// The connection dies in the middle of the third file; the downloads that the client keeps of it
// mean the same to the second host.
TEST_F(ServeTest, FinishesAtTheSecondHostWhenTheFirstDies) {
    Tree first = {{"common/1", SeededBytes(3 << 20, 1)},
                  {"common/2", SeededBytes(3 << 20, 2)},
                  {"common/3", SeededBytes(12 << 20, 3)},
                  {"linux64/4", SeededBytes(3 << 20, 4)}};
    Tree second = first;
    for (auto& [name, data] : second)
        data.replace(data.size() / 2, 2 << 20, SeededBytes(2 << 20, 9));
    const fs::path home = scratch.Path() / "home";
    fs::create_directory(home);

    // Once with whole files, once with patches.
    for (const auto& [version, tree] : {std::pair{"1.0", first}, std::pair{"1.1", second}}) {
        Publish(version, tree);
        fs::current_path(home);
        RecordingLog log;
        EventLoop loop;
        auto dying = std::make_unique<UpdateServer>(&loop, store.get(), OnHost("127.0.0.1"));
        UpdateServer living(&loop, store.get(), OnHost("127.0.0.2"));
        Player player(&loop);
        const StopWhen done(&loop, [&] {
            const auto& told = player.progress;
            const bool downloading =
                !told.statuses.empty() && told.statuses.back() == "Downloading updates...";
            const bool inThird =
                downloading && told.progress.back().first > told.progress.back().second / 8 * 5;
            if (inThird) dying.reset();
            return player.Done();
        });
        player.Start();
        loop.Run();
        EXPECT_TRUE(log.Has("Disconnected\nConnecting to 127.0.0.2")) << log.Text();
        EXPECT_TRUE(log.Has("couldn't insert file index"));
        EXPECT_FALSE(log.Has("failed!"));
        ExpectTree(tree);
    }
}

// Connects, says its words, and counts what comes back.
class RawClient : public RXPacketTCP {
public:
    RawClient(EventLoop* loop, std::vector<std::string> words)
        : m_loop(loop), m_words(std::move(words)) {
        EXPECT_EQ(Connect("127.0.0.1", kUpdatePort), 1);
        m_entry = m_loop->AddIO(this);
    }
    ~RawClient() override { m_loop->RemoveIO(m_entry); }

    void Say(const std::string& word) { SendPacket(word.data(), static_cast<int>(word.size())); }

    void OnWritable() override {
        for (const std::string& word : m_words) Say(word);
        SetFlags(IO_READ);
    }
    void OnPacket(const uint8_t*, int) override {
        ++packets;
        if (onPacket) onPacket(*this);
    }
    void OnDisconnect() override {
        dropped = true;
        Close();
    }

    std::function<void(RawClient&)> onPacket;
    int packets = 0;
    bool dropped = false;

private:
    EventLoop* m_loop;
    EventLoop::IO_Entry m_entry;
    std::vector<std::string> m_words;
};

TEST_F(ServeTest, LetsClientsWaitInOrderWhileOneDoesNotRead) {
    Publish("1.0", {{"linux64/big", SeededBytes(20 << 20, 1)}, {"common/x", "x"}});
    fs::create_directory("home");
    fs::current_path("home");
    ServerOptions options = OnHost("127.0.0.1");
    options.slots = 1;
    RecordingLog log;
    EventLoop loop;
    UpdateServer server(&loop, store.get(), options);
    RawClient holder(&loop, {"PVERA", "ARCHlinux64\0"s, "ARCHcommon\0"s, "GETV"});
    holder.onPacket = [](RawClient& client) {
        // After the version and the list of two: ask for a file, take the slot, and stop reading.
        if (client.packets == 4) client.Say("FULLlinux64/big\0"s);
        if (client.packets == 5) client.Say("REQD");
        if (client.packets < 6) return;
        client.Say("DOWN");
        client.SetFlags(0);
    };
    Player first(&loop);
    Player second(&loop);
    bool firstWasFirst = false;
    const StopWhen done(&loop, [&] {
        const auto waits = [](const Player& player, const char* place) {
            const auto& statuses = player.progress.statuses;
            return !statuses.empty() && statuses.back().find(place) == 0;
        };
        if (holder.packets == 6 && first.progress.statuses.empty()) first.Start();
        if (waits(first, "Waiting; #1/1") && second.progress.statuses.empty()) second.Start();
        if (waits(second, "Waiting; #2/2 in queue, approx. 00:00:00")) holder.Close();
        if (first.Done() && !second.Done()) firstWasFirst = true;
        return second.Done();
    });
    loop.Run();
    EXPECT_TRUE(firstWasFirst);
    EXPECT_TRUE(log.Has("hung up early")) << log.Text();
}

TEST_F(ServeTest, DropsClientsThatBreakTheProtocol) {
    Publish("1.0", {{"linux64/x", "x"}, {"common/y", "y"}, {"linux64upd/update.rlb", "u"}});
    const std::vector<std::string> greeting = {"PVERA", "ARCHlinux64\0"s, "ARCHcommon\0"s};
    const std::vector<std::string> cases[] = {
        {"GET / HTTP/1.0"},
        {""},
        {"PVERB"},
        {"PVERA", "GETV"},
        {"PVERA", "PVERA"},
        {"PVERA", "ARCHlinux64"},
        {"PVERA", "ARCHlinux65\0"s, "GETV"},
        {"PVERA", "ARCH../x\0"s},
        {"PVERA", "ARCHlinux64\0"s, "FULLlinux64/x\0"s},
        {"PVERA", "ARCHlinux64\0"s, "GETV", "REQD", "DOWN", "DOWN"},
        {"PVERA", "ARCHlinux64\0"s, "GETV", "FULLlinux64/../x\0"s},
        {"PVERA", "ARCHlinux64\0"s, "GETV", "FULLlinux64upd/update.rlb\0"s},
        {"PVERA", "ARCHlinux64\0"s, "GETV", "RSUM\0\0\0\1\0\0\0\0"s},
        {"PVERA", "ARCHlinux64\0"s, "GETV", "FULLlinux64/x\0"s, "FULLlinux64/x\0"s},
        {"PVERA", "ARCHlinux64\0"s, "MOTD", "MOTD"},
    };
    for (const auto& words : cases) {
        SCOPED_TRACE(words.back());
        RecordingLog log;
        EventLoop loop;
        UpdateServer server(&loop, store.get(), OnHost("127.0.0.1"));
        RawClient client(&loop, words);
        const StopWhen done(&loop, [&] { return client.dropped; });
        loop.Run();
        EXPECT_EQ(log.Count("dropped: broke the protocol\n"), 1) << log.Text();
        EXPECT_EQ(log.Count("\n"), 1) << log.Text();
    }
}

TEST_F(ServeTest, RefusesMoreClientsThanItCanWatch) {
    Publish("1.0", FirstGame());
    RecordingLog log;
    EventLoop loop;
    ServerOptions options = OnHost("127.0.0.1");
    options.slots = 900;  // leaves room for a hundred clients and no more
    UpdateServer server(&loop, store.get(), options);
    std::list<RawClient> crowd;
    for (int i = 0; i < 120; ++i) crowd.emplace_back(&loop, std::vector<std::string>{"PVERA"});
    const auto refused = [&] {
        return std::count_if(crowd.begin(), crowd.end(), [](auto& c) { return c.dropped; });
    };
    const StopWhen done(&loop, [&] { return refused() == 20; });
    loop.Run();
    EXPECT_EQ(log.Count("refused a client: 100 are being served, and no more can be\n"), 20);
}

TEST_F(ServeTest, StopsOnASignalAndSaysWhenThePortIsTaken) {
    Publish("1.0", {{"linux64/x", "x"}});
    std::string output;
    const std::string serve = RELEASE_TOOL " serve " + StorePath() + " --listen 127.0.0.1";
    const std::string stopped = "mkfifo said; " + serve +
                                " >said & exec 3<said; read -r line <&3; kill -TERM $!; wait $! && "
                                "echo $line && cat <&3";
    EXPECT_EQ(RunProgram({"/bin/sh", "-c", stopped}, &output), 0);
    EXPECT_THAT(output, testing::AllOf(HasSubstr("on 127.0.0.1:21024"), HasSubstr("stopping\n")));

    RecordingLog log;
    EventLoop loop;
    UpdateServer server(&loop, store.get(), OnHost("127.0.0.1"));
    EXPECT_EQ(RunProgram({"/bin/sh", "-c", serve}, &output), 1);
    EXPECT_THAT(output, HasSubstr("RXTCPListen: Address already in use\n"));
}

// The value of a count in a status file; -1 when it is not there.
int64_t Count(const std::string& status, const std::string& name) {
    const size_t at = ("\n" + status).find("\nhalcyrix_" + name + " ");
    return at == std::string::npos ? -1 : std::stoll(status.substr(at + name.size() + 10));
}

TEST_F(ServeTest, KeepsItsStatusInAFile) {
    Publish("1.0", {{"linux64/x", SeededBytes(5000, 1)}, {"common/y", "y"}});
    const fs::path file = scratch.Path() / "status";
    fs::create_directory("home");
    fs::current_path("home");
    RecordingLog log;
    EventLoop loop;
    ServerOptions options = OnHost("127.0.0.1");
    options.slots = 1;
    options.motdFile = "missing";
    UpdateServer server(&loop, store.get(), options);
    {
        const StatusFile early(&loop, &server, file.string());
        EXPECT_EQ(Count(ReadFile(file), "releases"), 1);
        EXPECT_EQ(Count(ReadFile(file), "sessions"), 0);
    }
    EXPECT_FALSE(fs::exists(file));

    RawClient unused(&loop, {});
    RawClient rude(&loop, {"?"});
    std::list<RawClient> queued;
    for (int i = 0; i < 3; ++i) {
        queued.emplace_back(
            &loop, std::vector<std::string>{"PVERA", "ARCHlinux64\0"s, "ARCHcommon\0"s, "GETV"});
        queued.back().onPacket = [](RawClient& client) {
            if (client.packets == 4) client.Say("REQD");
        };
    }
    Player player(&loop);
    const StopWhen done(&loop, [&] {
        if (rude.dropped && server.Status().waiting == 2) unused.Close();
        if (server.Status().waiting == 2 && player.progress.statuses.empty()) player.Start();
        return server.Status().waiting == 3 && server.Status().sessions == 4;
    });
    loop.Run();
    const StatusFile late(&loop, &server, file.string());
    const std::pair<const char*, int64_t> expected[] = {
        {"sessions", 4},
        {"downloading", 1},
        {"waiting", 3},
        {"sessions_dropped_total", 1},
        {"errors_total", 1},
        {"clients_refused_total", 0},
        {"sessions_completed_total", 0},
    };
    for (const auto& [name, value] : expected) {
        EXPECT_EQ(Count(ReadFile(file), name), value) << name << " in\n" << ReadFile(file);
    }
    EXPECT_GT(Count(ReadFile(file), "bytes_sent_total"), 0);
    EXPECT_EQ(log.Count("linux64+common"), 0) << log.Text();
    EXPECT_EQ(log.Count("dropped"), 1) << "a visit without a word is not told";
}

TEST(DownloadQueue, AdmitsInOrderAndReckonsTheRate) {
    DownloadQueue queue(2);
    ClientSession* const sessions[] = {reinterpret_cast<ClientSession*>(8),
                                       reinterpret_cast<ClientSession*>(16),
                                       reinterpret_cast<ClientSession*>(24)};
    for (ClientSession* session : sessions) queue.Join(session);
    EXPECT_EQ(queue.Admit(0), sessions[0]);
    EXPECT_EQ(queue.Admit(0), sessions[1]);
    EXPECT_EQ(queue.Admit(0), nullptr);
    EXPECT_EQ(queue.Rate(), 0);
    queue.Leave(sessions[0], 10'000, true);
    EXPECT_EQ(queue.Rate(), 20) << "two slots, ten seconds each";
    queue.Leave(sessions[1], 99'000, false);
    EXPECT_EQ(queue.Rate(), 20) << "a broken download says nothing";
    queue.Leave(sessions[2], 99'000, false);
    EXPECT_EQ(queue.Admit(99'000), nullptr);
    EXPECT_EQ(queue.Downloading(), 0);
}

}  // namespace
