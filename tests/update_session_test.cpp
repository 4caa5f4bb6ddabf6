// Whole sessions of the update client against scripted servers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "lib/checksum.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/scripted_server.h"
#include "update/messages.h"
#include "update/server_pool.h"
#include "update/update_client.h"

namespace {

using std::string_literals::operator""s;
using testing::ElementsAre;
using testing::ElementsAreArray;

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

// What an updater has for the length of its run, in an empty home directory. Each run is a new one
// in the same home.
struct Updater {
    EventLoop loop;
    RecordingLog log;
    StoppingProgress progress{&loop};
    UpdateClient client{&loop, &progress};

    int StartGame() { return client.Start(1, "linux64", "common", nullptr); }
    void RunGame() {
        ASSERT_EQ(StartGame(), 1);
        loop.Run();
    }
    std::string LastStatus() const { return progress.statuses.back(); }
};

class UpdateSession : public testing::Test {
protected:
    ScratchDir home;

    void Install(const std::string& version, const std::map<std::string, std::string>& files) {
        if (!version.empty()) WriteFile("halcyrix.lfv", kGameKey + (" " + version + "\n"));
        for (const auto& [name, data] : files) WriteFile(name.substr(name.find('/') + 1), data);
    }
    void ExpectInstalled(const std::map<std::string, std::string>& files) {
        for (const auto& [name, data] : files) {
            EXPECT_TRUE(ReadFile(name.substr(name.find('/') + 1)) == data) << name;
        }
    }
    void ExpectRecorded(const std::string& version) {
        EXPECT_EQ(ReadFile("halcyrix.lfv"), kGameKey + (" " + version + "\n"));
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
    Updater updater;
    ScriptedServer server(&updater.loop, "127.0.0.1", SmallGame());
    updater.RunGame();

    EXPECT_THAT(server.requests,
                ElementsAre("PVERA", "ARCHlinux64\0"s, "ARCHcommon\0"s, "MOTD", "GETV",
                            "FULLcommon/data/a.bin\0"s, "FULLcommon/readme\0"s,
                            "FULLlinux64/halcyrix\0"s, "FULLlinux64/nothing\0"s, "REQD", "DOWN"));
    ExpectInstalled(SmallGame().files);
    ExpectRecorded("1.1");
    EXPECT_THAT(updater.progress.statuses,
                ElementsAre("Connecting to 127.0.0.1:21024...", "Requesting latest version...",
                            "Negotiating download of 1.1", "Downloading updates...",
                            "Download complete.", "Update complete."));
    EXPECT_THAT(updater.progress.results, ElementsAre(4));
    EXPECT_EQ(updater.log.Text(),
              "Connecting to 127.0.0.1:21024...\nWelcome.\nLatest version: 1.1\n"
              "No local version found; downloading 1.1...\n");
    const int32_t total = 20000 + 9 + 8190 * 2;
    const std::pair<int32_t, int32_t> expected[] = {
        {0, total},     {8190, total},         {16380, total}, {20000, total},
        {20009, total}, {20009 + 8190, total}, {total, total}, {total, total},
        {total, total}, {total, total}};
    EXPECT_THAT(updater.progress.progress, ElementsAreArray(expected));
}

TEST_F(UpdateSession, AsksForNothingWhenTheInstallationIsWhole) {
    Updater updater;
    ScriptedServer server(&updater.loop, "127.0.0.1", SmallGame());
    Install("1.1", SmallGame().files);
    updater.RunGame();
    EXPECT_EQ(server.requests.back(), "GETV");
    EXPECT_EQ(updater.LastStatus(), "Update complete.");
    EXPECT_THAT(updater.progress.results, ElementsAre(0));
    EXPECT_TRUE(updater.log.Has("Version is current; verifying files...\n"));
}

TEST_F(UpdateSession, EndsWithSuccessOnAnEmptyFileList) {
    Updater updater;
    ScriptedServer server(&updater.loop, "127.0.0.1", HonestScript{});
    updater.RunGame();
    ExpectRecorded("1.1");
    EXPECT_THAT(updater.progress.results, ElementsAre(0));
}

TEST_F(UpdateSession, ResumesAFileThatWasCutOff) {
    const auto files = SmallGame().files;
    const std::string& whole = files.at("common/data/a.bin");
    const struct {
        std::string local;
        bool accepted;
    } cases[] = {
        {whole.substr(0, 300), true},
        {whole.substr(0, 5000), true},
        {SeededBytes(5000, 9), false},
        {whole + "more", false},
        {"", false},
    };
    for (const auto& c : cases) {
        Updater updater;
        ScriptedServer server(&updater.loop, "127.0.0.1", SmallGame());
        Install("1.1", files);
        WriteFile("data/a.bin", c.local);
        updater.RunGame();

        const auto offset = static_cast<uint32_t>(c.local.size());
        const std::string tail = c.local.size() > 1024 ? c.local.substr(offset - 1024) : c.local;
        const std::string expected[] = {
            "FULLcommon/data/a.bin\0"s,
            Encode(ResumeRequest{
                offset, tail.empty() ? 0xa5be5705
                                     : Checksum(tail.data(), uint32_t(tail.size()), 0xa5be5705)}),
            "REQD", "DOWN"};
        const std::vector<std::string> asked(server.requests.begin() + 5, server.requests.end());
        EXPECT_THAT(asked, ElementsAreArray(expected));
        ExpectInstalled(files);
        EXPECT_EQ(updater.log.Has("resuming download of common/data/a.bin\n"), c.accepted);
        EXPECT_EQ(updater.log.Has("resuming data/a.bin\n"), c.accepted);
        EXPECT_EQ(updater.log.Has("redownloading common/data/a.bin\n"), !c.accepted);
        EXPECT_EQ(updater.progress.progress.front().first, c.accepted ? int(offset) : 0);
    }
}

// The new file as the old one's first five bytes and a literal.
const char kPatch[] = "C\0\0\0\0\0\0\0\x05L\0\0\0\x04 newR";

TEST_F(UpdateSession, NegotiatesWhatEachFileNeeds) {
    const std::string name = "common/f";
    const std::string patch(kPatch, sizeof kPatch - 1);
    const struct {
        const char* what;
        std::string local;  // "" when there is no file
        std::string latest;
        std::map<std::string, std::string> old;
        std::map<std::string, std::string> patches;
        std::vector<std::string> asked;
    } cases[] = {
        {"a patch for the installed contents",
         "first version",
         "first new",
         {{name, "first version"}},
         {{name, patch}},
         {"CSUM1.0\0common/f\0"s, "PATC1.0\0common/f\0"s, "REQD", "DOWN"}},
        {"no patch on the server",
         "first version",
         "first new",
         {{name, "first version"}},
         {},
         {"CSUM1.0\0common/f\0"s, "PATC1.0\0common/f\0"s, "REQD", "DOWN"}},
        {"changed by somebody",
         "hacked",
         "first new",
         {{name, "first version"}},
         {{name, patch}},
         {"CSUM1.0\0common/f\0"s, "FULLcommon/f\0"s, "REQD", "DOWN"}},
        {"not in the installed version",
         "mine",
         "first new",
         {},
         {},
         {"CSUM1.0\0common/f\0"s, "FULLcommon/f\0"s, "REQD", "DOWN"}},
        {"missing",
         "",
         "first new",
         {{name, "first version"}},
         {{name, patch}},
         {"CSUM1.0\0common/f\0"s, "FULLcommon/f\0"s, "REQD", "DOWN"}},
        {"the latest already", "first new", "first new", {{name, "first version"}}, {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::filesystem::remove("f");
        Updater updater;
        HonestScript script;
        script.files = {{name, c.latest}};
        script.oldFiles = c.old;
        script.patches = c.patches;
        ScriptedServer server(&updater.loop, "127.0.0.1", script);
        Install("1.0", {});
        if (!c.local.empty()) WriteFile("f", c.local);
        updater.RunGame();
        EXPECT_THAT(std::vector(server.requests.begin() + 5, server.requests.end()),
                    ElementsAreArray(c.asked));
        ExpectInstalled(script.files);
        ExpectRecorded("1.1");
        EXPECT_FALSE(std::filesystem::exists("patches/200"));
        EXPECT_TRUE(updater.log.Has("Patching version 1.0 to 1.1...\n"));
        EXPECT_EQ(updater.LastStatus(), "Update complete.");
    }
}

TEST_F(UpdateSession, ResumesAPatchLeftByAnEarlierSession) {
    const std::string patch(kPatch, sizeof kPatch - 1);
    for (const size_t kept : {patch.size(), size_t{7}}) {
        Updater updater;
        HonestScript script;
        script.files = {{"common/f", "first new"}};
        script.oldFiles = {{"common/f", "first version"}};
        script.patches = {{"common/f", patch}};
        ScriptedServer server(&updater.loop, "127.0.0.1", script);
        Install("1.0", script.oldFiles);
        WriteFile("patches/200", patch.substr(0, kept));
        updater.RunGame();
        EXPECT_TRUE(updater.log.Has("resuming download of patch/patches/200\n"));
        EXPECT_TRUE(updater.log.Has("resuming patches/200\n"));
        ExpectInstalled(script.files);
    }
}

TEST_F(UpdateSession, KeepsTheSessionWhenAPatchFails) {
    HonestScript script;
    script.files = {{"common/f", "first new"}};
    script.oldFiles = {{"common/f", "first version"}};
    script.patches = {{"common/f", "nonsense"}};
    Install("1.0", script.oldFiles);
    {
        Updater updater;
        ScriptedServer server(&updater.loop, "127.0.0.1", script);
        updater.RunGame();
        EXPECT_TRUE(updater.log.Has("patch for f failed!\n"));
        EXPECT_THAT(updater.progress.results, ElementsAre(1));
        ExpectInstalled(script.oldFiles);
        ExpectRecorded("1.1");
    }
    // The next session finds the file and fetches it whole.
    Updater updater;
    ScriptedServer server(&updater.loop, "127.0.0.1", script);
    updater.RunGame();
    ExpectInstalled(script.files);
}

TEST_F(UpdateSession, PrintsTheMessageOfTheDayInPieces) {
    const struct {
        std::vector<std::string> packets;
        std::vector<std::string> printed;
    } cases[] = {
        {{"one\ntwo\n\0"s}, {"one\n", "two\n", ""}},
        {{"one\n", "two\n\0"s}, {"one\n", "two\n", ""}},
        {{"one\n", ""}, {"one\n"}},
        {{std::string(300, 'x') + '\0'},
         {std::string(128, 'x'), std::string(128, 'x'), std::string(44, 'x')}},
        {{"100%s\0"s}, {"100%s"}},
    };
    class PieceLog : public RecordingLog {
    public:
        void Print(const char* text) override { pieces.emplace_back(text); }
        std::vector<std::string> pieces;
    };
    for (const auto& c : cases) {
        Updater updater;
        PieceLog pieces;
        HonestScript honest;
        ScriptedServer server(&updater.loop, "127.0.0.1",
                              [&](ScriptedPeer& peer, const std::string& request) {
                                  if (request != "MOTD") return honest(peer, request);
                                  for (const std::string& packet : c.packets) peer.Reply(packet);
                              });
        updater.RunGame();
        EXPECT_THAT(std::vector(pieces.pieces.begin() + 1,
                                pieces.pieces.begin() + 1 + int(c.printed.size())),
                    ElementsAreArray(c.printed));
        EXPECT_EQ(server.requests.back(), "GETV");
    }
}

TEST_F(UpdateSession, TellsThePlaceInTheQueue) {
    const struct {
        QueueStatus status;
        const char* text;
    } cases[] = {
        {{false, 0, 5, 50}, "Waiting; #1/5 in queue, approx. 00:00:02 remaining"},
        {{false, 99, 100, 1}, "Waiting; #100/100 in queue, approx. 02:46:40 remaining"},
        {{false, 3, 9, 0}, "Waiting; #4/9 in queue, approx. 00:00:00 remaining"},
        {{false, 65535, 65535, 1}, "Waiting; #65536/65535 in queue, approx. 20:26:40 remaining"},
    };
    Updater updater;
    HonestScript honest = SmallGame();
    ScriptedServer server(&updater.loop, "127.0.0.1",
                          [&](ScriptedPeer& peer, const std::string& request) {
                              if (request == "REQD") {
                                  for (const auto& c : cases) peer.Reply(Encode(c.status));
                              }
                              honest(peer, request);
                          });
    updater.RunGame();
    for (const auto& c : cases) {
        EXPECT_THAT(updater.progress.statuses, testing::Contains(c.text));
    }
    ExpectInstalled(honest.files);
}

TEST_F(UpdateSession, ComparesVersionsWhole) {
    const struct {
        std::string announced;
        std::string installed;
        const char* log;
    } cases[] = {
        {std::string(200, '1'), std::string(117, '1'), "Patching version "},
        {"1.1", "1.1.1", "Patching version 1.1.1 to 1.1...\n"},
        {"1.1\0junk"s, "1.1", "Version is current"},
    };
    for (const auto& c : cases) {
        Updater updater;
        HonestScript script;
        script.version = c.announced;
        ScriptedServer server(&updater.loop, "127.0.0.1", script);
        Install(c.installed, {});
        updater.RunGame();
        EXPECT_TRUE(updater.log.Has(c.log)) << updater.log.Text();
        const std::string kept(c.announced.c_str(),
                               std::min<size_t>(127, strlen(c.announced.c_str())));
        EXPECT_TRUE(updater.log.Has("Latest version: " + kept + "\n"));
    }
}

TEST_F(UpdateSession, FailsOnAStreamThatItCannotFollow) {
    const auto header = [](uint32_t index) { return Encode(DownloadHeader{index, 0, 0, 0}); };
    const struct {
        std::vector<std::string> stream;
        const char* log;
    } cases[] = {
        {{header(7)}, "file index 7 unknown!  aborting!\n"},
        {{header(100), "x", header(100)}, "file index 100 unknown!  aborting!\n"},
        {{header(101)}, "can't open readme!  aborting!"},
    };
    WriteFile("readme/in/the/way", "");
    for (const auto& c : cases) {
        Updater updater;
        HonestScript honest = SmallGame();
        ScriptedServer server(&updater.loop, "127.0.0.1",
                              [&](ScriptedPeer& peer, const std::string& request) {
                                  if (request != "DOWN") return honest(peer, request);
                                  for (const std::string& packet : c.stream) peer.Reply(packet);
                              });
        updater.RunGame();
        EXPECT_TRUE(updater.log.Has(c.log)) << updater.log.Text();
        EXPECT_EQ(updater.LastStatus(), "Update failed.");
        EXPECT_THAT(updater.progress.results, ElementsAre(-1));
    }
}

TEST_F(UpdateSession, TreatsALeftoverDownloadAsAPatch) {
    Updater updater;
    HonestScript honest = SmallGame();
    ScriptedServer server(&updater.loop, "127.0.0.1",
                          [&](ScriptedPeer& peer, const std::string& request) {
                              if (request != "DOWN") return honest(peer, request);
                              peer.Reply(Encode(DownloadHeader{kEndOfDownloads, 0, 0, 0}));
                          });
    updater.RunGame();
    EXPECT_EQ(updater.log.Count("Failed to load "), 4);
    EXPECT_EQ(updater.LastStatus(), "Halcyrix is up to date.");
    EXPECT_THAT(updater.progress.results, ElementsAre(0));
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
        bool controlOnly;  // makes no sense in place of file data
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
            Updater updater;
            ScriptedServer second(&updater.loop, "127.0.0.2", honest);
            HonestScript breaking = honest;
            bool broke = false;
            breaking.replace = [&](ScriptedPeer& peer, int number, const std::string& reply) {
                replies = std::max(replies, number + 1);
                const bool data = reply.size() > 200 || reply.empty();
                // A shorter version, motd or text is as good as a whole one.
                const bool text = number < 2;
                if (number != broken || (way.controlOnly && (data || text))) {
                    return peer.Reply(reply);
                }
                broke = true;
                way.instead(peer, reply);
            };
            ScriptedServer first(&updater.loop, "127.0.0.1", breaking);
            updater.RunGame();
            if (broke && !second.requests.empty()) {
                EXPECT_TRUE(updater.log.Has(way.log)) << updater.log.Text();
            }
            ExpectInstalled(honest.files);
            ExpectRecorded("1.1");
        }
        EXPECT_GT(replies, 15);
    }
}

TEST_F(UpdateSession, RefusesNamesThatLeaveTheHome) {
    const std::string names[] = {"/etc/x", "..", "a/../../x", "a//x",
                                 "../x/y", "a/", "x/y/..",    "x/" + std::string(4094, 'n')};
    for (const std::string& name : names) {
        for (const bool isPatch : {false, true}) {
            Updater updater;
            HonestScript honest;
            honest.files = {{isPatch ? "common/f" : name, "new"}};
            honest.oldFiles = {{"common/f", "old"}};
            ScriptedServer server(
                &updater.loop, "127.0.0.1", [&](ScriptedPeer& peer, const std::string& request) {
                    if (request.substr(0, 4) != "PATC") return honest(peer, request);
                    peer.Reply(Encode(PatchReply{name, 5, 3, 0, name.size() % 2 == 0}));
                });
            Install("1.0", honest.oldFiles);
            updater.RunGame();
            EXPECT_TRUE(updater.log.Has("refusing the name " + name + " from the server!"));
            EXPECT_THAT(updater.progress.results, ElementsAre(-1));
            EXPECT_NE(server.requests.back(), "REQD");
        }
    }
}

TEST_F(UpdateSession, LogsAnIndexThatIsGivenTwice) {
    Updater updater;
    HonestScript honest;
    honest.files = {{"common/f", "one"}, {"common/g", "two"}};
    ScriptedServer server(&updater.loop, "127.0.0.1",
                          [&](ScriptedPeer& peer, const std::string& request) {
                              if (request.substr(0, 4) == "FULL") {
                                  peer.Reply(Encode(FullReply{5, 0, 3}));
                              } else if (request == "DOWN") {
                                  peer.Reply(Encode(DownloadHeader{5, 0, 0, 0}));
                                  peer.Reply("one");
                                  peer.Reply(Encode(DownloadHeader{kEndOfDownloads, 0, 0, 0}));
                              } else {
                                  honest(peer, request);
                              }
                          });
    updater.RunGame();
    EXPECT_TRUE(updater.log.Has("couldn't insert file index 5?\n"));
    EXPECT_EQ(ReadFile("f"), "one");
    EXPECT_THAT(updater.progress.results, ElementsAre(1));
}

TEST_F(UpdateSession, SaysSoWhenNoServerCanBeReached) {
    Updater updater;
    updater.RunGame();
    EXPECT_EQ(updater.LastStatus(), "Connection failed");
    EXPECT_TRUE(updater.log.Has("Connecting to 127.0.0.1:21024...\n"));
    EXPECT_TRUE(updater.log.Has("Connecting to 127.0.0.2:21024...\n"));
    EXPECT_EQ(updater.log.Count("Can't reach any Brenmoor update server!\n\n\n------"), 1);
    EXPECT_TRUE(updater.log.Has("network administrator.\n\nFor more information"));
    EXPECT_TRUE(updater.progress.results.empty());
    EXPECT_FALSE(updater.client.IsOpen());
    EXPECT_EQ(updater.client.m_flags, 0u);

    // Nothing more happens: a new session is refused, and no late timeout repeats the words.
    EXPECT_EQ(updater.StartGame(), 0);
    EXPECT_TRUE(updater.log.Has("Already connected!\n"));
    updater.client.OnDisconnect();
    EXPECT_EQ(updater.log.Count("Can't reach any"), 1);
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
        if (updater.progress.results.size() == 1) {
            EXPECT_EQ(updater.StartGame(), 1);
        } else {
            updater.loop.Stop(0);
        }
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
    ExpectInstalled(honest.files);
}

TEST_F(UpdateSession, IgnoresEveryEventWhenIdle) {
    Updater updater;
    updater.client.OnWritable();
    updater.client.OnPacket(reinterpret_cast<const uint8_t*>("x"), 1);
    updater.client.OnTimer(0);
    EXPECT_EQ(updater.log.Text(), "");
    EXPECT_TRUE(updater.progress.statuses.empty());
}

TEST(ReturnStack, HoldsTenStatesAndNeverRunsOut) {
    ReturnStack stack;
    for (int state = 100; state < 112; ++state) stack.Push(state);
    for (int state = 109; state >= 100; --state) EXPECT_EQ(stack.Pop(), state);
    EXPECT_EQ(stack.Pop(), STATE_INERT);
}

}  // namespace
