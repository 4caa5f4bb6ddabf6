// Whole sessions of the update client against scripted servers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "lib/checksum.h"
#include "lib/server_name.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/scripted_server.h"
#include "update/messages.h"
#include "update/server_pool.h"
#include "update/update_client.h"

namespace {

using std::string_literals::operator""s;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

constexpr char kGameKey[] = "9fcdf44f";  // of "linux64", "common"

// Ends the dispatcher's Run() when the session has ended, one way or another.
class StoppingProgress : public RecordingProgress {
public:
    explicit StoppingProgress(EventLoop* loop) : m_loop(loop) {
        onFinished = [this](int32_t) { m_loop->Stop(0); };
    }
    void SetStatus(const char* text) override {
        RecordingProgress::SetStatus(text);
        if (text == "Connection failed"s) m_loop->Stop(0);
    }

private:
    EventLoop* m_loop;
};

// What an updater has for the length of its run. Each run is a new one in the same home.
struct Updater {
    EventLoop loop;
    RecordingLog log;
    StoppingProgress progress{&loop};
    UpdateClient client{&loop, &progress};

    int StartGame() { return client.Start(1, "linux64", "common", nullptr); }
};

// What came of a run.
struct Outcome {
    std::vector<std::string> asked;  // of the first host
    bool askedSecond;
    std::string log;
    std::vector<std::string> statuses;
    std::vector<int32_t> results;
    std::vector<std::pair<int32_t, int32_t>> progress;

    // The requests behind the greeting and the version request.
    std::vector<std::string> AskedForFiles() const { return {asked.begin() + 5, asked.end()}; }
};

class UpdateSession : public testing::Test {
protected:
    ScratchDir home;

    // Runs a game session against one or two hosts.
    Outcome Run(const ScriptedServer::Script& first, const ScriptedServer::Script& second = {}) {
        Updater updater;
        ScriptedServer server(&updater.loop, "127.0.0.1", first);
        std::optional<ScriptedServer> spare;
        if (second) spare.emplace(&updater.loop, "127.0.0.2", second);
        EXPECT_EQ(updater.StartGame(), 1);
        updater.loop.Run();
        return {server.requests,          spare && !spare->requests.empty(),
                updater.log.Text(),       updater.progress.statuses,
                updater.progress.results, updater.progress.progress};
    }

    // Answers the requests that begin with `tag` by the packets, and the others honestly.
    static ScriptedServer::Script Instead(HonestScript honest, const std::string& tag,
                                          const std::vector<std::string>& packets) {
        return [=](ScriptedPeer& peer, const std::string& request) mutable {
            if (!request.starts_with(tag)) return honest(peer, request);
            for (const std::string& packet : packets) peer.Reply(packet);
        };
    }

    void Install(const std::string& version, const std::map<std::string, std::string>& files) {
        if (!version.empty()) WriteFile("halcyrix.lfv", kGameKey + (" " + version + "\n"));
        for (const auto& [name, data] : files) WriteFile(LocalPath(name), data);
    }
    void ExpectInstalled(const std::map<std::string, std::string>& files) {
        for (const auto& [name, data] : files) {
            EXPECT_TRUE(ReadFile(LocalPath(name)) == data) << name;
        }
        EXPECT_EQ(ReadFile("halcyrix.lfv"), kGameKey + " 1.1\n"s);
    }
};

HonestScript SmallGame() {
    HonestScript script;
    script.files = {{"common/data/a.bin", SeededBytes(20000, 1)},
                    {"common/readme", "Read me.\n"},
                    {"linux64/halcyrix", SeededBytes(8190 * 2, 2)},
                    {"linux64/nothing", ""}};
    return script;
}

TEST_F(UpdateSession, FetchesAGameIntoAnEmptyHome) {
    // A link that the player made is followed.
    std::filesystem::create_directory("other disk");
    std::filesystem::create_directory_symlink("other disk", "data");
    const Outcome run = Run(SmallGame());
    EXPECT_THAT(run.asked,
                ElementsAre("PVERA", "ARCHlinux64\0"s, "ARCHcommon\0"s, "MOTD", "GETV",
                            "FULLcommon/data/a.bin\0"s, "FULLcommon/readme\0"s,
                            "FULLlinux64/halcyrix\0"s, "FULLlinux64/nothing\0"s, "REQD", "DOWN"));
    ExpectInstalled(SmallGame().files);
    EXPECT_TRUE(std::filesystem::exists("other disk/a.bin"));
    EXPECT_THAT(run.statuses,
                ElementsAre("Connecting to 127.0.0.1:21024...", "Requesting latest version...",
                            "Negotiating download of 1.1", "Downloading updates...",
                            "Download complete.", "Update complete."));
    EXPECT_THAT(run.results, ElementsAre(4));
    EXPECT_EQ(run.log,
              "Connecting to 127.0.0.1:21024...\nWelcome.\nLatest version: 1.1\n"
              "No local version found; downloading 1.1...\n");
    std::vector<int32_t> done;
    for (const auto& [bytes, total] : run.progress) {
        done.push_back(bytes);
        EXPECT_EQ(total, 36389);
    }
    EXPECT_THAT(done, ElementsAre(0, 8190, 16380, 20000, 20009, 28199, 36389, 36389, 36389, 36389));
}

TEST_F(UpdateSession, AsksForNothingWhenNothingIsMissing) {
    Install("1.1", SmallGame().files);
    for (const HonestScript& script : {SmallGame(), HonestScript{}}) {
        const Outcome run = Run(script);
        EXPECT_EQ(run.asked.back(), "GETV");
        EXPECT_EQ(run.statuses.back(), "Update complete.");
        EXPECT_THAT(run.results, ElementsAre(0));
        EXPECT_THAT(run.log, HasSubstr("Version is current; verifying files...\n"));
    }
}

// Fires at every turn that the dispatcher gets.
class TurnCounter : public Timer_Event {
public:
    using Timer_Event::Timer_Event;
    void OnTimer(uint64_t) override {
        ++turns;
        Schedule(0);
    }
    int turns = 0;
};

TEST_F(UpdateSession, GivesTheDispatcherItsTurnBetweenFilesThatTakeLong) {
    HonestScript script;
    for (const char* name : {"common/1", "common/2", "common/3"}) {
        script.files[name] = SeededBytes(500000, 1);
    }
    Install("1.1", script.files);
    Updater updater;
    TurnCounter counter(&updater.loop);
    std::vector<int> turnsAfterFiles;
    updater.progress.onProgress = [&](int32_t done, int32_t total) {
        if (done < total) return;
        turnsAfterFiles.push_back(counter.turns);
        if (turnsAfterFiles.size() == 1) counter.Schedule(0);
        const uint64_t began = EventLoop::Now();
        while (EventLoop::Now() < began + 30) continue;  // a slow disk, say
    };
    ScriptedServer server(&updater.loop, "127.0.0.1", script);
    EXPECT_EQ(updater.StartGame(), 1);
    updater.loop.Run();
    ASSERT_EQ(turnsAfterFiles.size(), 3u);
    EXPECT_LT(turnsAfterFiles[0], turnsAfterFiles[1]);
    EXPECT_LT(turnsAfterFiles[1], turnsAfterFiles[2]);
}

TEST_F(UpdateSession, ResumesAFileThatWasCutOff) {
    const auto files = SmallGame().files;
    const std::string& whole = files.at("common/data/a.bin");
    const std::pair<std::string, bool> cases[] = {
        {whole.substr(0, 300), true},
        {whole.substr(0, 5000), true},
        {SeededBytes(5000, 9), false},
        {whole + "more", false},
        {"", false},
    };
    for (const auto& [local, accepted] : cases) {
        Install("1.1", files);
        WriteFile("data/a.bin", local);
        const Outcome run = Run(SmallGame());
        const auto offset = static_cast<uint32_t>(local.size());
        const std::string tail = offset > 1024 ? local.substr(offset - 1024) : local;
        const uint32_t checksum =
            tail.empty() ? 0xa5be5705 : Checksum(tail.data(), uint32_t(tail.size()), 0xa5be5705);
        EXPECT_THAT(run.AskedForFiles(),
                    ElementsAre("FULLcommon/data/a.bin\0"s, Encode(ResumeRequest{offset, checksum}),
                                "REQD", "DOWN"));
        ExpectInstalled(files);
        EXPECT_THAT(run.log, HasSubstr(accepted ? "resuming download of common/data/a.bin\n"
                                                  "resuming data/a.bin\n"
                                                : "redownloading common/data/a.bin\n"));
        EXPECT_EQ(run.progress.front().first, accepted ? int(offset) : 0);
    }
}

// The new file as the old one's first five bytes and a literal.
const std::string kPatch = "C\0\0\0\0\0\0\0\x05L\0\0\0\x04 newR"s;

TEST_F(UpdateSession, NegotiatesWhatEachFileNeeds) {
    const std::string csum = "CSUM1.0\0common/f\0"s;
    const std::string patc = "PATC1.0\0common/f\0"s;
    const std::string full = "FULLcommon/f\0"s;
    const char* const old = "first version";
    const struct {
        const char* what;
        const char* local;  // null when there is no file
        const char* old;    // the same on the server
        std::string patch;
        std::vector<std::string> asked;
    } cases[] = {
        {"a patch for the installed contents", old, old, kPatch, {csum, patc, "REQD", "DOWN"}},
        {"no patch on the server", old, old, "", {csum, patc, "REQD", "DOWN"}},
        {"changed by somebody", "hacked", old, kPatch, {csum, full, "REQD", "DOWN"}},
        {"not in the installed version", "mine", nullptr, "", {csum, full, "REQD", "DOWN"}},
        {"missing", nullptr, old, kPatch, {csum, full, "REQD", "DOWN"}},
        {"the latest already", "first new", old, "", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        HonestScript script;
        script.files = {{"common/f", "first new"}};
        if (c.old != nullptr) script.oldFiles = {{"common/f", c.old}};
        if (!c.patch.empty()) script.patches = {{"common/f", c.patch}};
        Install("1.0", {});
        std::filesystem::remove("f");
        if (c.local != nullptr) WriteFile("f", c.local);
        const Outcome run = Run(script);
        EXPECT_THAT(run.AskedForFiles(), ElementsAreArray(c.asked));
        ExpectInstalled(script.files);
        EXPECT_FALSE(std::filesystem::exists("patches/200"));
        EXPECT_THAT(run.log, HasSubstr("Patching version 1.0 to 1.1...\n"));
        EXPECT_EQ(run.statuses.back(), "Update complete.");
    }
}

TEST_F(UpdateSession, AppliesAPatchLeftByAnEarlierSessionAndOutlivesABadOne) {
    HonestScript script;
    script.files = {{"common/f", "first new"}};
    script.oldFiles = {{"common/f", "first version"}};
    script.patches = {{"common/f", kPatch}};
    for (const size_t kept : {kPatch.size(), size_t{7}}) {
        Install("1.0", script.oldFiles);
        WriteFile("patches/200", kPatch.substr(0, kept));
        const Outcome run = Run(script);
        EXPECT_THAT(run.log, HasSubstr("resuming download of patch/patches/200\n"
                                       "resuming patches/200\n"));
        ExpectInstalled(script.files);
    }

    script.patches = {{"common/f", "nonsense"}};
    Install("1.0", script.oldFiles);
    const Outcome bad = Run(script);
    EXPECT_THAT(bad.log, HasSubstr("patch for f failed!\n"));
    EXPECT_THAT(bad.results, ElementsAre(1));
    ExpectInstalled(script.oldFiles);
    Run(script);  // finds the file and fetches it whole
    ExpectInstalled(script.files);
}

TEST_F(UpdateSession, PrintsTheMessageOfTheDayInPieces) {
    class PieceLog : public RecordingLog {
    public:
        void Print(const char* text) override { pieces.emplace_back(text); }
        std::vector<std::string> pieces;
    };
    const std::string x128(128, 'x');
    const struct {
        std::vector<std::string> packets;
        std::vector<std::string> printed;
    } cases[] = {
        {{"one\ntwo\n\0"s}, {"one\n", "two\n", ""}},
        {{"one\n", "two\n\0"s}, {"one\n", "two\n", ""}},
        {{"one\n", ""}, {"one\n"}},
        {{std::string(300, 'x') + '\0'}, {x128, x128, std::string(44, 'x')}},
        {{"100%s\0"s}, {"100%s"}},
    };
    for (const auto& c : cases) {
        Updater updater;
        PieceLog log;
        ScriptedServer server(&updater.loop, "127.0.0.1", Instead({}, "MOTD", c.packets));
        ASSERT_EQ(updater.StartGame(), 1);
        updater.loop.Run();
        log.pieces.resize(1 + c.printed.size());
        EXPECT_THAT(std::vector(log.pieces.begin() + 1, log.pieces.end()),
                    ElementsAreArray(c.printed));
        EXPECT_EQ(server.requests.back(), "GETV");
    }
}

TEST_F(UpdateSession, TellsThePlaceInTheQueue) {
    const std::pair<QueueStatus, const char*> cases[] = {
        {{false, 0, 5, 50}, "Waiting; #1/5 in queue, approx. 00:00:02 remaining"},
        {{false, 99, 100, 1}, "Waiting; #100/100 in queue, approx. 02:46:40 remaining"},
        {{false, 3, 9, 0}, "Waiting; #4/9 in queue, approx. 00:00:00 remaining"},
        {{false, 65535, 65535, 1}, "Waiting; #65536/65535 in queue, approx. 20:26:40 remaining"},
    };
    std::vector<std::string> packets;
    for (const auto& [status, text] : cases) packets.push_back(Encode(status));
    packets.push_back(Encode(QueueStatus{true, 0, 0, 0}));
    const Outcome run = Run(Instead(SmallGame(), "REQD", packets));
    for (const auto& [status, text] : cases) EXPECT_THAT(run.statuses, Contains(text));
    ExpectInstalled(SmallGame().files);
}

TEST_F(UpdateSession, ComparesVersionsWhole) {
    const std::string ones(127, '1');
    const struct {
        std::string announced, installed, log;
    } cases[] = {
        {ones + ones, ones.substr(0, 117),
         "Patching version " + ones.substr(0, 117) + " to " + ones},
        {"1.1", "1.1.1", "Patching version 1.1.1 to 1.1...\n"},
        {"1.1\0junk"s, "1.1", "Latest version: 1.1\nVersion is current"},
    };
    for (const auto& c : cases) {
        HonestScript script;
        script.version = c.announced;
        Install(c.installed, {});
        EXPECT_THAT(Run(script).log, HasSubstr(c.log));
    }
}

TEST_F(UpdateSession, FailsOnAStreamThatItCannotFollow) {
    const auto header = [](uint32_t index) { return Encode(DownloadHeader{index, 0, 0, 0}); };
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{header(7)}, "file index 7 unknown!  aborting!\n"},
        {{header(100), "x", header(100)}, "file index 100 unknown!  aborting!\n"},
        {{header(101)}, "can't open readme!  aborting!"},
    };
    WriteFile("readme/in/the/way", "");
    for (const auto& [stream, log] : cases) {
        const Outcome run = Run(Instead(SmallGame(), "DOWN", stream));
        EXPECT_THAT(run.log, HasSubstr(log));
        EXPECT_EQ(run.statuses.back(), "Update failed.");
        EXPECT_THAT(run.results, ElementsAre(-1));
    }
}

TEST_F(UpdateSession, TreatsALeftoverDownloadAsAPatch) {
    const Outcome run =
        Run(Instead(SmallGame(), "DOWN", {Encode(DownloadHeader{kEndOfDownloads, 0, 0, 0})}));
    EXPECT_THAT(run.log, HasSubstr("Failed to load readme patch common/readme\n"));
    EXPECT_EQ(run.statuses.back(), "Halcyrix is up to date.");
    EXPECT_THAT(run.results, ElementsAre(0));
}

// A conversation that is broken off at every one of its replies is finished by the second host.
TEST_F(UpdateSession, GoesOnAtTheNextHostAfterALostConnectionAnywhere) {
    HonestScript honest = SmallGame();
    honest.oldFiles = {{"common/readme", "Old text."}};
    honest.patches = {{"common/readme", "L\0\0\0\x09Read me.\nR"s}};
    const struct {
        const char* what;
        const char* log;
        std::function<void(ScriptedPeer&, const std::string&)> instead;
        bool controlOnly;  // makes no sense in place of text or file data
    } breaks[] = {
        {"closed", "Disconnected\n", [](auto& peer, auto&) { peer.HangUp(); }, false},
        {"oversize frame", "Invalid packet size; disconnecting\nDisconnected\n",
         [](auto& peer, auto&) { peer.SendRaw("\xff\xff"); }, false},
        {"cut", "Malformed reply from the server; disconnecting\nDisconnected\n",
         [](auto& peer, auto& reply) { peer.Reply(reply.substr(0, reply.size() - 1)); }, true},
    };
    for (const auto& way : breaks) {
        int replies = 0;  // of a whole conversation, counted by the first round, which breaks none
        for (int broken = -1; broken < replies; ++broken) {
            SCOPED_TRACE(way.what + (" at reply " + std::to_string(broken)));
            for (const char* path : {"data/a.bin", "halcyrix", "nothing"}) {
                std::filesystem::remove(path);
            }
            Install("1.0", honest.oldFiles);
            HonestScript breaking = honest;
            breaking.replace = [&](ScriptedPeer& peer, int number, const std::string& reply) {
                replies = std::max(replies, number + 1);
                const bool data = number < 2 || reply.size() > 200 || reply.empty();
                const bool breaks_now = number == broken && !(way.controlOnly && data);
                breaks_now ? way.instead(peer, reply) : peer.Reply(reply);
            };
            const Outcome run = Run(breaking, honest);
            EXPECT_THAT(run.log, HasSubstr(run.askedSecond ? way.log : ""));
            ExpectInstalled(honest.files);
        }
        EXPECT_GT(replies, 15);
    }
}

TEST_F(UpdateSession, RefusesNamesThatLeaveTheHome) {
    for (const std::string& name :
         {"/etc/x"s, ".."s, "a/../../x"s, "../x/y"s, "x/y/.."s, "x/" + std::string(4094, 'n')}) {
        HonestScript listed;
        listed.files = {{name, "new"}};
        HonestScript honest;
        honest.files = {{"common/f", "new"}};
        honest.oldFiles = {{"common/f", "old"}};
        // As a file name, as a patch's download name, and as the unused one of a whole file.
        for (const auto& script :
             {ScriptedServer::Script(listed),
              Instead(honest, "PATC", {Encode(PatchReply{name, 5, 3, 0, true})}),
              Instead(honest, "PATC", {Encode(PatchReply{name, 5, 3, 0, false})})}) {
            Install("1.0", honest.oldFiles);
            const Outcome run = Run(script);
            EXPECT_THAT(run.log, HasSubstr("refusing the name " + name + " from the server!"));
            EXPECT_THAT(run.results, ElementsAre(-1));
            EXPECT_NE(run.asked.back(), "REQD");
        }
    }
}

TEST_F(UpdateSession, LogsAnIndexThatIsGivenTwice) {
    HonestScript honest;
    honest.files = {{"common/f", "one"}, {"common/g", "two"}};
    const Outcome run = Run([&](ScriptedPeer& peer, const std::string& request) {
        if (request.starts_with("FULL")) return peer.Reply(Encode(FullReply{100, 0, 3}));
        if (request.starts_with("GETV") || request == "REQD") return honest(peer, request);
        if (request == "MOTD") return peer.Reply("");
        if (request != "DOWN") return;
        peer.Reply(Encode(DownloadHeader{100, 0, 0, 0}));
        peer.Reply("one");
        peer.Reply(Encode(DownloadHeader{kEndOfDownloads, 0, 0, 0}));
    });
    EXPECT_THAT(run.log, HasSubstr("couldn't insert file index 100?\n"));
    EXPECT_EQ(ReadFile("f"), "one");
    EXPECT_THAT(run.results, ElementsAre(1));
}

TEST_F(UpdateSession, SaysSoWhenNoServerCanBeReached) {
    Updater updater;
    ASSERT_EQ(updater.StartGame(), 1);
    updater.loop.Run();
    EXPECT_EQ(updater.progress.statuses.back(), "Connection failed");
    EXPECT_TRUE(updater.log.Has("Connecting to 127.0.0.2:21024...\n"));
    EXPECT_EQ(updater.log.Count("Can't reach any Brenmoor update server!\n\n\n------"), 1);
    EXPECT_TRUE(updater.log.Has("network administrator.\n\nFor more information"));
    EXPECT_TRUE(updater.progress.results.empty());
    EXPECT_EQ(updater.client.m_fd, -1);
    EXPECT_EQ(updater.client.m_flags, 0u);
    EXPECT_EQ(updater.StartGame(), 0);
    EXPECT_TRUE(updater.log.Has("Already connected!\n"));
}

TEST_F(UpdateSession, WaitsOutAHostThatHasNoAddress) {
    server_pool[0] = "no-such-host.invalid";
    Updater updater;
    ScriptedServer second(&updater.loop, "127.0.0.2", SmallGame());
    ASSERT_EQ(updater.StartGame(), 1);
    EXPECT_EQ(updater.client.m_fd, -1);
    EXPECT_EQ(updater.client.m_flags, IO_WRITE);
    updater.loop.Dispatch(0);
    EXPECT_TRUE(updater.log.Has("Failed connecting to no-such-host.invalid\n"));
    updater.client.OnTimer(0);
    EXPECT_TRUE(updater.log.Has("Connection timeout!\n"));
    updater.loop.Run();
    ExpectInstalled(SmallGame().files);
    server_pool[0] = "127.0.0.1";
}

TEST_F(UpdateSession, MayBeStartedFromTheLastPacketOfAnother) {
    Updater updater;
    updater.progress.onFinished = [&](int32_t) {
        if (updater.progress.results.size() == 2) return updater.loop.Stop(0);
        EXPECT_EQ(updater.StartGame(), 1);
    };
    // The first session ends at the end of a stream without a file, with more packets behind it.
    HonestScript honest = SmallGame();
    ScriptedServer server(&updater.loop, "127.0.0.1",
                          [&](ScriptedPeer& peer, const std::string& request) {
                              if (request != "DOWN" || !updater.progress.results.empty()) {
                                  return honest(peer, request);
                              }
                              for (int i = 0; i < 40; ++i) {
                                  peer.Reply(Encode(DownloadHeader{kEndOfDownloads, 0, 0, 0}));
                              }
                          });
    ASSERT_EQ(updater.client.Start(0, "linux64upd", nullptr), 1);
    updater.loop.Run();
    EXPECT_THAT(updater.progress.results, ElementsAre(0, 4));
    EXPECT_EQ(ReadFile("halcyrix.lfv"), "07871091 1.1\n9fcdf44f 1.1\n");
}

TEST_F(UpdateSession, IgnoresEveryEventWhenIdle) {
    Updater updater;
    updater.client.OnWritable();
    updater.client.OnPacket(reinterpret_cast<const uint8_t*>("x"), 1);
    updater.client.OnTimer(0);
    EXPECT_EQ(updater.log.Text(), "");
    EXPECT_TRUE(updater.progress.statuses.empty());
}

}  // namespace
