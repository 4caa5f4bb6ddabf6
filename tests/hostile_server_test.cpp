// Servers that lie, stop in the middle, or never stop. Whatever one does, the session ends or waits
// for it, nothing outside the home directory changes, and the next start at an honest server brings
// every file up to date.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <random>

#include "tests/support/memory_use.h"
#include "tests/support/recorders.h"
#include "tests/support/relay.h"
#include "tests/support/scratch_disk.h"
#include "tests/support/scripted_server.h"
#include "update/messages.h"
#include "update/update_client.h"

namespace {

namespace fs = std::filesystem;
using std::string_literals::operator""s;

HonestScript Game() {
    HonestScript script;
    script.files = {{"common/data/large", SeededBytes(8190 + 2000, 1)},
                    {"common/patched", "first new"},
                    {"common/replaced", "new"},
                    {"linux64/halcyrix", SeededBytes(60, 2)},
                    {"linux64/nothing", ""}};
    script.oldFiles = {{"common/patched", "first version"}};
    script.patches = {{"common/patched", "C\0\0\0\0\0\0\0\x05L\0\0\0\x04 newR"s}};
    return script;
}

// Installations that lead through different parts of the conversation, by their record.
const std::map<std::string, std::map<std::string, std::string>> kInstallations = {
    // Part of a file is there.
    {"", {{"data/large", SeededBytes(8190 + 2000, 1).substr(0, 9000)}}},
    // Part of a patch is there.
    {"9fcdf44f 1.0\n", {{"patched", "first version"}, {"patches/201", "C\0\0\0"s}}},
};

// Calls back whenever a count has not changed for a while.
class Silence : private Timer_Event {
public:
    Silence(EventLoop* loop, std::function<size_t()> count, std::function<void()> then)
        : Timer_Event(loop), m_count(std::move(count)), m_then(std::move(then)) {
        Schedule(kWhile);
    }

private:
    static constexpr uint64_t kWhile = 3;  // milliseconds

    void OnTimer(uint64_t) override {
        if (std::exchange(m_last, m_count()) == m_last) m_then();
        Schedule(kWhile);
    }

    std::function<size_t()> m_count;
    std::function<void()> m_then;
    size_t m_last = 0;
};

// One session of the game's components.
class Visit : public ProgressIndicator {
public:
    explicit Visit(ScriptedServer::Script script)
        : m_server(std::make_unique<ScriptedServer>(&loop, "127.0.0.1", std::move(script))) {
        client.Start(1, "linux64", "common", nullptr);
    }

    // Goes on until the session is over.
    void Run() {
        loop.Run();
        m_server.reset();  // frees the port
    }

    // The same with a server that may leave the client waiting, but hangs up in the end.
    void RunPatiently() {
        const Silence silence(
            &loop, [this] { return m_server ? m_server->requests.size() : 0; },
            [this] { m_server.reset(); });
        Run();
    }

    // For a server that never stops: until the session is over, or `statuses` have been shown.
    void RunUntil(int statuses) {
        m_lastStatus = statuses;
        Run();
    }

    void SetProgress(int32_t, int32_t) override {}
    void SetStatus(const char* text) override {
        if (text == "Connection failed"s) Finished(-1);
        if (--m_lastStatus == 0) loop.Stop(0);
    }
    void Finished(int32_t) override {
        over = true;
        loop.Stop(0);
    }

    RecordingLog log;
    EventLoop loop;
    UpdateClient client{&loop, this};
    bool over = false;

private:
    int m_lastStatus = 0;
    std::unique_ptr<ScriptedServer> m_server;
};

class HostileServer : public testing::Test {
protected:
    void Install(const std::string& record) {
        fs::current_path(disk.Path());
        fs::remove_all("home");
        WriteFile("outside/secret", "untouched");
        WriteFile("home/mine", "the player's own");
        fs::current_path("home");
        if (!record.empty()) WriteFile("halcyrix.lfv", record);
        for (const auto& [path, data] : kInstallations.at(record)) WriteFile(path, data);
    }

    // After a hostile session: what is outside, and whether a start at an honest server completes.
    void ExpectRecovery(const std::string& mine = "the player's own") {
        std::set<std::string> outside;
        for (const auto& entry : fs::recursive_directory_iterator(disk.Path())) {
            const std::string path = fs::relative(entry.path(), disk.Path());
            if (!path.starts_with("home/")) outside.insert(path);
        }
        EXPECT_EQ(outside, (std::set<std::string>{"home", "outside", "outside/secret"}));
        EXPECT_EQ(ReadFile("../outside/secret"), "untouched");
        EXPECT_EQ(ReadFile("mine"), mine);

        Visit honest((Game()));
        honest.Run();
        for (const auto& [name, data] : Game().files) {
            EXPECT_TRUE(ReadFile(name.substr(name.find('/') + 1)) == data) << name << "\n"
                                                                           << honest.log.Text();
        }
        EXPECT_TRUE(ReadFile("halcyrix.lfv").ends_with("9fcdf44f 1.1\n")) << honest.log.Text();
        ++sessions;
    }

    ~HostileServer() override { printf("%d hostile sessions\n", sessions); }

    ScratchDisk disk;
    int sessions = 0;
};

TEST_F(HostileServer, MaySpoilEveryReplyInEveryWay) {
    std::mt19937 random(1);
    const auto bytes = [&random](size_t size) { return SeededBytes(size, random()); };
    using Spoil = std::function<void(ScriptedPeer&, const std::string& reply)>;
    std::vector<std::pair<std::string, Spoil>> ways = {
        {"closed", [](auto& peer, auto&) { peer.HangUp(); }},
        {"withheld", [](auto&, auto&) {}},
        {"doubled", [](auto& peer, auto& reply) { peer.SendRaw(FrameOf(reply) + FrameOf(reply)); }},
        {"empty", [](auto& peer, auto&) { peer.Reply(""); }},
        {"zeros", [](auto& peer, auto& reply) { peer.Reply(std::string(reply.size(), '\0')); }},
        {"oversize", [](auto& peer, auto&) { peer.SendRaw("\x1f\xff" + std::string(8191, 'x')); }},
        {"largest", [&](auto& peer, auto&) { peer.Reply(bytes(kMaxPayload)); }},
        {"random", [&](auto& peer, auto& reply) { peer.Reply(bytes(reply.size())); }},
        {"no frame", [&](auto& peer, auto&) { peer.SendRaw(bytes(random() % 100)); }},
        {"longer",
         [](auto& peer, auto& reply) { peer.Reply(reply.substr(0, kMaxPayload - 1) + "x"); }},
    };
    const size_t common = ways.size();
    for (const auto& [record, files] : kInstallations) {
        std::vector<size_t> sizes;  // of the replies of a session in which none is spoilt
        for (int spoilt = -1; spoilt < static_cast<int>(sizes.size()); ++spoilt) {
            ways.resize(common);
            for (size_t at = 0; spoilt >= 0 && at < std::min<size_t>(sizes[spoilt] + 2, 64); ++at) {
                ways.emplace_back("cut short", [at](auto& peer, auto& reply) {
                    peer.Reply(reply.substr(0, at));
                });
                ways.emplace_back("closed in the middle", [at](auto& peer, auto& reply) {
                    peer.SendRaw(FrameOf(reply).substr(0, at));
                    peer.HangUp();
                });
            }
            for (const auto& [name, spoil] : ways) {
                SCOPED_TRACE(name + " at reply " + std::to_string(spoilt) + " after " + record);
                Install(record);
                HonestScript script = Game();
                script.replace = [&](ScriptedPeer& peer, int number, const std::string& reply) {
                    if (spoilt == -1) sizes.push_back(reply.size());
                    number == spoilt ? spoil(peer, reply) : peer.Reply(reply);
                };
                Visit(script).RunPatiently();
                ExpectRecovery();
                ASSERT_FALSE(HasFailure());
                if (spoilt == -1) break;
            }
        }
        EXPECT_GT(sizes.size(), 15u);
    }
}

// Does something after every pass of the dispatcher.
class EachPass : public Poll_Event {
public:
    EachPass(EventLoop* loop, std::function<void()> what)
        : Poll_Event(loop), m_what(std::move(what)) {
        Register();
    }
    ~EachPass() override { Unregister(); }
    void OnPoll() override { m_what(); }

private:
    std::function<void()> m_what;
};

TEST_F(HostileServer, MaySendOneByteAtATime) {
    for (const auto& [record, files] : kInstallations) {
        Install(record);
        HonestScript script = Game();
        ScriptedPeer* to = nullptr;
        std::string bytes;
        size_t sent = 0;
        script.replace = [&](ScriptedPeer& peer, int, const std::string& reply) {
            to = &peer;
            bytes += FrameOf(reply);
        };
        Visit visit(script);
        const EachPass trickle(&visit.loop, [&] {
            if (sent < bytes.size()) to->SendRaw(bytes.substr(sent++, 1));
        });
        visit.Run();
        EXPECT_EQ(sent, bytes.size());
        EXPECT_FALSE(visit.log.Has("Disconnected")) << visit.log.Text();
        ExpectRecovery();
    }
}

// A server that answers some requests in its own way.
struct Lie {
    const char* what;
    std::string tag;  // the request, by its beginning
    std::vector<std::string> replies;
    std::string mine = "the player's own";  // what becomes of the player's file
};

std::string Header(uint32_t index, uint32_t offset = 0) {
    return Encode(DownloadHeader{index, 0, 0, offset});
}

TEST_F(HostileServer, MayLie) {
    const uint32_t end = kEndOfDownloads;
    const auto listed = [](const std::string& name) {
        return std::vector<std::string>{"1.1", Encode(FileListEntry{name, 1, 1}), "\0"s};
    };
    const std::string full(kMaxPayload, 'x');
    std::vector<Lie> lies = {
        {"unknown index", "DOWN", {Header(7), "x"}},
        {"data without a header", "DOWN", {"x", full, ""}},
        {"a file twice", "DOWN", {Header(102), "x", Header(102), "x", Header(end)}},
        {"more than announced", "DOWN", {Header(102), full, full, "x", Header(end)}},
        {"less than announced", "DOWN", {Header(100), "x", Header(end)}},
        {"nothing", "DOWN", {Header(end)}},
        {"an append to nothing", "DOWN", {Header(103, 0xFFFFFFFF), "x", Header(end)}},
        {"the index that ends the stream", "FULL", {Encode(FullReply{end, 0, 0xFFFFFFFF})}},
        {"one index for all", "FULL", {Encode(FullReply{5, 0, 0xFFFFFFFF})}},
        {"ready at once and again", "REQD", {Encode(QueueStatus{true, 9, 9, 9}), full, "\1"}},
        {"the whole list again", "DOWN", {"1.1", "\0"s}},
    };
    for (const std::string& version :
         {""s, "\n"s, "1\nvEvil"s, "1\n\n"s, "a b"s, "%s%n"s, "\xff\x01"s, std::string(127, 'z')}) {
        lies.push_back({"version", "GETV", {version, "\0"s}});
    }
    const std::string outside = disk.Path() / "outside/new";
    for (const std::string& name :
         {outside, "../outside/new"s, ".."s, "x/../../outside/new"s, "a/"s + outside,
          "a/../outside/new"s, "a/b/../../../x"s, ""s, "a/"s, "."s, "a/."s, "a/\xff"s,
          "a/" + std::string(4093, 'n')}) {
        lies.push_back({"listed name", "GETV", listed(name)});
        for (const bool isPatch : {false, true}) {
            lies.push_back({"patch name", "PATC", {Encode(PatchReply{name, 5, 1, 1, isPatch})}});
        }
    }
    for (const char* name : {"mine/file", "patched/file", "halcyrix.lfv/file"}) {
        lies.push_back({"a file as a folder", "GETV", listed("common/"s + name)});
    }
    // A patch may be kept under any name in the home directory, and is deleted when it was applied.
    for (const std::string& name : {"patched"s, "patched.tmp"s, "data/large"s, "replaced"s,
                                    "halcyrix.lfv"s, "halcyrix.vtm"s, "patches"s, "mine"s}) {
        const Lie lie{"patch kept as another file",
                      "PATC",
                      {Encode(PatchReply{name, 5, 10, 1, true})},
                      name == "mine" ? "(missing)" : "the player's own"};
        lies.push_back(lie);
    }

    for (const auto& [record, files] : kInstallations) {
        for (const Lie& lie : lies) {
            SCOPED_TRACE(lie.what + (" after " + record) + testing::PrintToString(lie.replies));
            Install(record);
            HonestScript honest = Game();
            bool lied = false;
            Visit visit([&](ScriptedPeer& peer, const std::string& request) {
                const bool patchIsSent = lie.tag == "PATC" && lied && request == "DOWN";
                if (patchIsSent) {
                    peer.Reply(Header(5));
                    peer.Reply("C\0\0\0\0\0\0\0\x05R"s);
                    peer.Reply(Header(end));
                } else if (request.starts_with(lie.tag)) {
                    lied = true;
                    for (const std::string& reply : lie.replies) peer.Reply(reply);
                } else {
                    honest(peer, request);
                }
            });
            visit.RunPatiently();
            ExpectRecovery(lied ? lie.mine : "the player's own");
        }
    }
}

TEST_F(HostileServer, MaySendWithoutEnd) {
    const std::string longName = "common/" + std::string(4080, 'n');
    const struct {
        const char* what;
        std::string tag;
        std::string before, flood;
        const char* log;  // the session's last words; empty when it goes on for ever
    } floods[] = {
        {"message of the day", "MOTD", "", FrameOf(std::string(100, 'x')),
         "the server sends a message of the day without end!  aborting!\n"},
        {"long names", "GETV", FrameOf("1.1"), FrameOf(Encode(FileListEntry{longName, 1, 1})),
         "the server sends a file list without end!  aborting!\n"},
        {"short names", "GETV", FrameOf("1.1"), FrameOf(Encode(FileListEntry{"n", 1, 1})),
         "the server sends a file list without end!  aborting!\n"},
        {"queue", "REQD", "", FrameOf(Encode(QueueStatus{false, 1, 1, 1})), ""},
        {"data", "DOWN", FrameOf(Header(102)), FrameOf(std::string(kMaxPayload, 'x')),
         "can't write to replaced!  aborting! (probably a full harddrive)"},
    };
    signal(SIGXFSZ, SIG_IGN);
    rlimit files;
    getrlimit(RLIMIT_FSIZE, &files);
    for (const auto& flood : floods) {
        SCOPED_TRACE(flood.what);
        Install("");
        const rlimit small{1 << 20, files.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        HonestScript honest = Game();
        const long before = ResidentKilobytes(getpid());
        {
            Visit visit([&](ScriptedPeer& peer, const std::string& request) {
                if (!request.starts_with(flood.tag)) return honest(peer, request);
                std::string round;  // in pieces of a size that is worth a call
                while (round.size() < 30000) round += flood.flood;
                peer.SendRaw(flood.before);
                peer.Flood(round);
            });
            visit.RunUntil(flood.log[0] == '\0' ? 100000 : 0);
            EXPECT_EQ(visit.over, flood.log[0] != '\0');
            EXPECT_TRUE(visit.log.Has(flood.log)) << visit.log.Text().substr(0, 1000);
            const long grown = ResidentKilobytes(getpid()) - before;
            printf("%s: %ld KiB more\n", flood.what, grown);
            if (kMeasuresMemory) {
                EXPECT_LT(grown, 256 * 1024);
            }
        }
        setrlimit(RLIMIT_FSIZE, &files);
        ExpectRecovery();
    }
}

}  // namespace
