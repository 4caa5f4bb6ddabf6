// Whole sessions of the update client, with the maker's own server and with one that answers as the
// rows of a table say.

#include <sys/time.h>

#include "lib/checksum.h"
#include "tests/support/game.h"
#include "tests/support/relay.h"
#include "tests/support/session.h"
#include "update/messages.h"
#include "update/server_pool.h"

static uint64_t stoppedClock = 0;  // milliseconds; 0 while the clock runs
static int clockReadings = 0;

// The dispatcher's clock.
int gettimeofday(timeval* now, void*) noexcept {
    ++clockReadings;
    timespec at{time_t(stoppedClock / 1000), long(stoppedClock % 1000 * 1000000)};
    if (stoppedClock == 0) clock_gettime(CLOCK_REALTIME, &at);
    *now = {at.tv_sec, at.tv_nsec / 1000};
    return 0;
}

namespace {

namespace fs = std::filesystem;
using namespace std::literals;
using std::chrono::steady_clock;
using namespace testing;  // its matchers

// Packets by the tag of the request that they answer.
using Answers = std::map<std::string, std::vector<std::string>>;

const std::string kOld = "first version";
const std::string kNew = "first new";
// The new file as the old one's first five bytes and a literal.
const std::string kPatch = "C\0\0\0\0\0\0\0\x05L\0\0\0\x04 newR"s;

uint32_t SumOf(const std::string& text, uint32_t start = kFileChecksumStart) {
    return Checksum(text.data(), static_cast<uint32_t>(text.size()), start);
}

std::string Listed(const std::string& name, const std::string& contents = kNew) {
    const auto size = static_cast<uint32_t>(contents.size());
    FileContents file{reinterpret_cast<const uint8_t*>(contents.data()), size};
    ChecksumFiles({&file, 1});
    return Encode(FileListEntry{name, file.checksum, size});
}

std::string Header(uint32_t index, uint32_t offset = 0) {
    return Encode(DownloadHeader{index, 0, 0, offset});
}

std::string Resume(uint32_t offset, const std::string& tail) {
    return Encode(ResumeRequest{offset, SumOf(tail, kRangeChecksumStart)});
}

std::string Patch(const std::string& name, bool isPatch = true, uint32_t index = 6) {
    return Encode(PatchReply{name, index, static_cast<uint32_t>(kPatch.size()), 0, isPatch});
}

const std::string kEnd = Header(kEndOfDownloads);
const std::string kCsum = "CSUM1.0\0common/f\0"s, kPatc = "PATC1.0\0common/f\0"s;
const std::string kFull = "FULLcommon/f\0"s;

// What a server says of a game of one file in version 1.1.
const Answers kHonest = {{"MOTD", {"\0"s}},
                         {"GETV", {"1.1", Listed("common/f"), "\0"s}},
                         {"CSUM", {Encode(ChecksumReply{SumOf(kOld)})}},
                         {"FULL", {Encode(FullReply{5, 0, 9})}},
                         {"PATC", {Patch("p")}},
                         {"RSUM", {"\1"}},
                         {"REQD", {"\1"}},
                         {"DOWN", {Header(5), kNew, kEnd}}};

Answers List(const std::string& version, const std::vector<std::string>& names) {
    std::vector<std::string> packets = {version};
    for (const std::string& name : names) packets.push_back(Listed(name));
    packets.push_back("\0"s);
    return {{"GETV", packets}};
}

Answers Stream(const std::vector<std::string>& packets, Answers others = {}) {
    others["DOWN"] = packets;
    return others;
}

class UpdateSession : public GameTest {};

struct Row {
    std::string what, record;             // the installed version
    Tree local = {};                      // the files that are there
    Answers answers = {};                 // in the place of the honest ones
    std::string log = {};                 // a part of it
    std::vector<std::string> asked = {};  // behind the version request; anything when empty
    int32_t result = 1;
    std::string status = "Update complete.";  // shown at some time
    Tree after = {{"f", kNew}};
    int32_t begins = 0;  // the progress
};

TEST_F(UpdateSession, FollowsTheServer) {
    const std::string part = kNew.substr(0, 5), ones(200, '1'), full(8190, 'x');
    const char* const failed = "Update failed.";
    // clang-format off
    std::vector<Row> rows = {
        {"nothing there", "", {}, {}, "No local version found; downloading 1.1...\n",
         {kFull, "REQD", "DOWN"}},
        {"a patch", "1.0", {{"f", kOld}}, Stream({Header(6), kPatch, kEnd}),
         "Patching version 1.0 to 1.1...\n", {kCsum, kPatc, "REQD", "DOWN"}, 1, "Patching f...",
         {{"f", kNew}, {"p", "(missing)"}, {"f.tmp", "(missing)"}}},
        {"changed by somebody", "1.0", {{"f", "hacked"}}, {}, "", {kCsum, kFull, "REQD", "DOWN"}},
        {"missing, and new", "1.0", {}, {{"CSUM", {Encode(ChecksumReply{kNoChecksum})}}}, "",
         {kCsum, kFull, "REQD", "DOWN"}},
        {"cut off", "", {{"f", part}}, Stream({Header(5, 5), " new", kEnd}),
         "resuming download of common/f\nresuming f\n", {kFull, Resume(5, part), "REQD", "DOWN"},
         1, "Update complete.", {{"f", kNew}}, 5},
        {"a second name, refused", "", {{"f", full}}, {{"RSUM", {"\0"s}}}, "redownloading common/f\n",
         {kFull, Resume(8190, full.substr(0, 1024)), "REQD", "DOWN"}, 1, "Update complete.",
         {{"f", kNew}, {"../other", full}}},
        {"a patch that was cut off", "1.0", {{"f", kOld}, {"p", kPatch.substr(0, 7)}},
         Stream({Header(6, 7), kPatch.substr(7), kEnd}),
         "resuming download of patch/p\nresuming p\n",
         {kCsum, kPatc, Resume(7, kPatch.substr(0, 7)), "REQD", "DOWN"}, 1, "Update complete.",
         {{"f", kNew}}, 7},
        {"a bad patch", "1.0", {{"f", kOld}}, Stream({Header(6), "nonsense", kEnd}),
         "Failed to load f patch p\npatch for f failed!\nI'm afraid you'll have to re-run the "
         "updater\nand re-download this file.  Your harddrive is full\nor ", {}, 1,
         "Update complete.", {{"f", kOld}, {"p", "(missing)"}}},
        {"signed indexes, and a file that never comes", "1.0", {{"a", kOld}},
         Stream({kEnd}, {{"GETV", List("1.1", {"common/b", "common/a"})["GETV"]},
                         {"PATC", {Patch("p", true, 0xFFFFFFFB)}}}),
         "screwed something up.\nFailed to load b patch common/b\n", {}, 0,
         "Halcyrix is up to date.", {}},
        {"a doubled slash", "1.0", {{"f", kOld}},
         Stream({Header(6), kPatch, kEnd}, {{"PATC", {Patch("patches//x")}}})},
        {"a doubled slash in the list", "1.0", {}, List("1.1", {"a//x"}), "refusing the name a//x from", {},
         -1, failed, {}},

        {"message of packets", "", {}, {{"MOTD", {"1\n100%s\n", "2\n\0"s}}}, "1\n100%s\n2\nLatest"},
        {"a version that begins like the other", "1.1.1", {}, {}, "version 1.1.1 to 1.1...\n"},
        {"a long version", "", {}, List(ones, {"common/f"}), ": " + ones.substr(0, 127) + "\n"},
        {"the queue", "", {}, {{"REQD", {Encode(QueueStatus{false, 9, 9, 0}),
                                         Encode(QueueStatus{false, 99, 100, 1}), "\1"}}}, "", {}, 1,
         "Waiting; #100/100 in queue, approx. 02:46:40 remaining"},

        {"an unknown index", "", {}, Stream({Header(0xFFFFFFFB)}),
         "file index -5 unknown!  aborting!\n", {}, -1, failed, {}},
        {"more there than it says", "", {{"f", part}}, Stream({Header(5, 4), "x", kEnd}),
         "resuming f\ncan't open f!  aborting!", {}, -1, failed, {{"f", part}}, 5},
        {"not to be appended to", "", {{"f", part}, {"read only", ""}}, Stream({Header(5, 5), kEnd}),
         "can't open f!  aborting!", {}, -1, failed, {{"f", "(missing)"}}, 5},
        {"a second name", "", {{"f", part}}, Stream({Header(5, 5), " new", kEnd}),
         "can't open f!  aborting!", {}, -1, failed, {{"f", "(missing)"}, {"../other", part}}, 5},
        {"a link", "", {{"f", part}}, Stream({Header(5, 5), " new", kEnd}),
         "can't open f!  aborting!", {}, -1, failed, {{"f", "(missing)"}, {"../other", part}}, 5},
        {"the same patch again", "1.0", {{"f", kOld}}, Stream({Header(6), kPatch, Header(6, 19)}),
         "file index 6 unknown!  aborting!\n", {}, -1, failed, {{"f", kOld}, {"p", kPatch}}},
        {"not to be opened", "", {{"f/g", ""}}, {}, "can't open f!  aborting!", {}, -1, failed, {}},
        {"a full disk", "", {}, Stream({Header(5), full, full, "", kEnd}),
         "can't write to f!  aborting! (probably a full harddrive)", {}, -1, failed,
         {{"f", std::string(10000, 'x')}}},
        {"an index given twice", "", {},
         {{"GETV", List("1.1", {"common/f", "common/g"})["GETV"]},
          {"FULL", {Encode(FullReply{5, 0, 0xFFFFFFFF})}}}, "couldn't insert file index 5?\n"},
    };
    // Every reply one byte short. There is no second host, and nothing behind the reply counts.
    for (const std::string tag : {"GETV", "CSUM", "FULL", "PATC", "RSUM", "REQD", "DOWN"}) {
        Answers cut = {*kHonest.find(tag)};
        cut[tag].at(tag == "GETV" ? 1 : 0).pop_back();
        rows.push_back({"cut " + tag, "1.0",
                        {{"f", tag == "FULL" ? "hacked" : kOld}, {"p", "C"}}, cut,
                        "Malformed reply from the server; disconnecting\nDisconnected\nCan't reach", {},
                        -2, "Connection failed", {}, 1});
    }
    // clang-format on
    for (const std::string& name :
         {"/etc/x"s, ".."s, "a/../../x"s, "../x/y"s, "x/y/.."s, "x/" + std::string(4094, 'n')}) {
        // Of a file, of a patch, and one that is not used.
        for (const Answers& lie : {List("1.1", {name}), Answers{{"PATC", {Patch(name)}}},
                                   Answers{{"PATC", {Patch(name, false)}}}}) {
            const std::string log = "refusing the name " + name + " from the server!  aborting!\n";
            rows.push_back({"", "1.0", {{"f", kOld}}, lie, log, {}, -1, failed, {{"f", kOld}}});
        }
    }

    const FileSizeLimit limit(10000);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what + ": " + row.log);
        Install("", {});
        if (!row.record.empty()) WriteFile("halcyrix.lfv", "9fcdf44f " + row.record + "\n");
        for (const auto& [path, data] : row.local) WriteFile(path, data);
        if (row.local.contains("read only")) chmod("f", 0444);
        fs::remove("../other");
        if (row.what.starts_with("a second name")) fs::create_hard_link("f", "../other");
        if (row.what == "a link") fs::rename("f", "../other"), fs::create_symlink("../other", "f");
        Answers answers = row.answers;
        answers.insert(kHonest.begin(), kHonest.end());
        Relay server(Answer(answers));
        const bool lost = row.result == -2;
        const char* const second = std::exchange(server_pool[1], lost ? nullptr : server_pool[1]);
        Session session;
        EXPECT_EQ(session.RunGame(), row.result);
        server_pool[1] = second;
        EXPECT_EQ(session.log.Text().ends_with("-----\n\n"), lost);
        EXPECT_THAT(session.log.Text(), HasSubstr(row.log));
        EXPECT_THAT(session.progress.statuses, Contains(row.status));
        const std::vector<std::string> requests = server.Requests();
        ASSERT_GE(requests.size(), 5u);
        if (!row.asked.empty()) {
            EXPECT_EQ(std::vector(requests.begin() + 5, requests.end()), row.asked);
        }
        const auto& progress = session.progress.progress;
        EXPECT_TRUE(progress.empty() || progress.front().first == row.begins);
        for (const auto& [path, data] : row.after) EXPECT_EQ(ReadFile(path), data) << path;
        const bool fails = row.result < 0 && !row.record.empty();
        const std::string latest = answers.at("GETV").front().c_str();
        EXPECT_THAT(ReadFile("halcyrix.lfv"),
                    EndsWith("9fcdf44f " + (fails ? row.record : latest.substr(0, 127)) + "\n"));
    }
}

TEST_F(UpdateSession, UpdatesTheUpdaterAndThenTheGame) {
    Publish("1.0", FirstGame());
    WriteFile("../motd", "Welcome.\n");
    ServingProgram server(StorePath(), "127.0.0.2", {"--motd", "../motd"});
    // Behind the end of each stream, more of them and something that is no frame.
    Relay relay([](const Passing& passing) -> std::optional<Instead> {
        if (passing.isRequest || !passing.payload.starts_with("\xff\xff\xff\xff")) return {};
        return Instead{FrameOf(kEnd) + FrameOf(kEnd) + FrameOf(kEnd) + "\xff\xff"};
    });
    Session session;
    session.progress.onFinished = [&](int32_t) {
        if (session.progress.results.size() == 2) return session.loop.Stop(0);
        EXPECT_EQ(session.StartGame(), 1);
    };
    session.progress.onStatus = [](const std::string& status) {
        EXPECT_TRUE(status != "Negotiating download of 1.0" || fs::exists("halcyrix.lfv"));
    };
    session.progress.onProgress = [](int32_t done, int32_t total) {
        if (done == 0 || total != 9000) return;
        EXPECT_EQ(fs::file_size("update.rlb"), done) << "every packet is to be written at once";
    };
    ASSERT_EQ(session.client.Start(0, "linux64upd", nullptr), 1);
    EXPECT_EQ(session.StartGame(), 0);
    session.Run();
    EXPECT_THAT(session.progress.results, ElementsAre(1, 6));
    EXPECT_EQ(session.progress.progress.back(), std::make_pair(176428, 176428));
    ExpectInstalled("1.0", FirstGame());
    EXPECT_EQ(ReadFile("halcyrix.lfv"), "07871091 1.0\n9fcdf44f 1.0\n");
    const std::string connecting = "Connecting to 127.0.0.1:21024...\n";
    const std::string latest = "Latest version: 1.0\nNo local version found; downloading 1.0...\n";
    EXPECT_THAT(session.log.Text(), StartsWith(connecting + "Already connected!\n" + latest +
                                               connecting + "Welcome.\n" + latest));
    EXPECT_FALSE(session.log.Has("Disconnected")) << "that is of no interest any more";
    EXPECT_THAT(std::vector(session.progress.statuses.end() - 6, session.progress.statuses.end()),
                ElementsAre("Connecting to 127.0.0.1:21024...", "Requesting latest version...",
                            "Negotiating download of 1.0", "Downloading updates...",
                            "Download complete.", "Update complete."));
}

TEST_F(UpdateSession, GoesOnAtTheNextHostAndRecordsTheVersionLast) {
    Publish("1.0", FirstGame());
    Publish("1.1", NextGame());
    ServingProgram server(StorePath(), "127.0.0.2");
    // The first host is lost while files are left to check, then with all but the end received.
    int32_t total = 0;
    for (const bool received : {false, true}) {
        Install("1.0", FirstGame());
        Relay relay([=](const Passing& passing) -> std::optional<Instead> {
            const bool last = received ? passing.payload == kEnd : passing.payload.size() == 4;
            if (passing.isRequest || !last) return {};
            return Instead{"", Instead::kHangUp};
        });
        Session session;
        session.progress.onStatus = [](const std::string& status) {
            EXPECT_TRUE(!status.starts_with("Patching ") ||
                        ReadFile("halcyrix.lfv").ends_with(" 1.0\n"));
        };
        EXPECT_EQ(session.RunGame(), received ? 5 : 3) << "both patches twice";
        EXPECT_THAT(session.log.Text(),
                    HasSubstr("Disconnected\nConnecting to 127.0.0.2:21024...\nLatest version: "
                              "1.1\nPatching version 1.0 to 1.1...\n"));
        EXPECT_EQ(session.log.Count("resuming download of patch/"), received ? 2 : 0);
        EXPECT_THAT(session.progress.statuses, Contains("Negotiating update to 1.1..."));
        ExpectInstalled("1.1", NextGame());
        const int32_t asked = session.progress.progress.front().second;
        if (!received) total = asked;
        EXPECT_EQ(asked, total) << "no file is asked for twice";
    }
}

const std::string kLarge = SeededBytes(500000, 1);  // checking it reports progress

TEST_F(UpdateSession, ChecksItsFilesOnItsOwnAndInTurns) {
    for (const std::string record : {"1.0", "1.1"}) {
        Install(record, {{"x/a", kLarge}, {"x/b", kLarge}});
        Session session;
        std::vector<int> turns;
        session.progress.onProgress = [&](int32_t done, int32_t total) {
            if (done < total) return;
            turns.push_back(clockReadings);
            const auto until = steady_clock::now() + 30ms;  // a slow disk, say
            while (steady_clock::now() < until) continue;
        };
        // Hangs up while the files are checked.
        Relay server(
            Answer({{"GETV", {"1.1", Listed("x/a", kLarge), Listed("x/b", kLarge), "\0"s}}},
                   Instead::kHangUp));
        session.client.Start(0, "linux64", "common", nullptr);
        EXPECT_EQ(session.Run(), 0);
        EXPECT_FALSE(session.log.Has("Disconnected\n"));
        ASSERT_EQ(turns.size(), 2u);
        EXPECT_LT(turns.front(), turns.back()) << "the dispatcher had its turn";
    }
}

TEST_F(UpdateSession, ChecksEachFileAtItsTurnAndIgnoresStrayPackets) {
    for (const std::string record : {"", "1.0"}) {
        Install(record, {{"x/a", kLarge}, {"x/f", "first bad"}, {"x/g", kNew}, {"x/z", kLarge}});
        Answers answers = kHonest;
        answers["GETV"] = {"1.1",         Listed("x/a", kLarge), Listed("x/f"),
                           Listed("x/g"), Listed("x/z", kLarge), "\0"s};
        answers["CSUM"] = {Encode(ChecksumReply{kNoChecksum})};
        answers["DOWN"] = {Header(5), kNew, Header(6), kNew, kEnd};
        const Rule honest = Answer(answers);
        Relay server([&](const Passing& passing) -> std::optional<Instead> {
            if (passing.payload == "FULLx/f\0"s) WriteFile("g", "other bad");
            if (passing.payload != "FULLx/g\0"s) return honest(passing);
            return Instead{FrameOf(Encode(FullReply{6, 0, 9}))};
        });
        Session session;
        session.progress.onProgress = [&](int32_t done, int32_t) {
            if (done == 500000) server.Say(FrameOf(Encode(FullReply{77, kNoChecksum, 9})));
        };
        EXPECT_EQ(session.RunGame(), 2) << session.log.Text();
        EXPECT_EQ(ReadFile("f") + ReadFile("g"), kNew + kNew);
    }
}

TEST_F(UpdateSession, GivesAHostTenSecondsAndEndsWithTheLast) {
    const char* const hosts[] = {server_pool[0], server_pool[1]};
    server_pool[0] = server_pool[1] = "no-such-host.invalid";
    stoppedClock = EventLoop::Now();
    Session session;
    ASSERT_EQ(session.StartGame(), 1);
    for (const char* after : {"Connecting to no-such-host.invalid:21024...\n",
                              "Can't reach any Brenmoor update server!\n\n\n------"}) {
        stoppedClock += 9999;
        session.loop.Dispatch(0);
        EXPECT_THAT(session.log.Text(), EndsWith("Failed connecting to no-such-host.invalid\n"));
        ++stoppedClock;
        session.loop.Dispatch(0);
        EXPECT_THAT(session.log.Text(), HasSubstr("Connection timeout!\n"s + after));
    }
    std::copy(hosts, hosts + 2, server_pool);

    // Nobody listens: nothing is left of the attempts.
    Session refused;
    EXPECT_EQ(refused.RunGame(), -2);
    stoppedClock += 100000;
    refused.loop.RunTimers();
    EXPECT_THAT(refused.log.Text(),
                HasSubstr("Connecting to 127.0.0.2:21024...\nConnection failed: Connection "
                          "refused\nCan't reach any Brenmoor update server!\n\n\n-----"));
    EXPECT_EQ(refused.log.Count("Can't reach any"), 1);
    EXPECT_EQ(refused.client.m_fd, -1);
    EXPECT_EQ(refused.StartGame(), 0);
    stoppedClock = 0;
}

}  // namespace
