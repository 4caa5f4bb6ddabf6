// Updaters that are killed, and servers that spoil what they say or never stop: nothing is lost,
// nothing outside the home changes, and the next start that is left alone finishes
// (docs/reliability.md).
#include "tests/support/game.h"
#include "tests/support/relay.h"
#include "tests/support/session.h"
#include "update/messages.h"

namespace {

namespace fs = std::filesystem;

constexpr char kForeignRecord[] = "12345678 7\n";  // of another set of components

class Reliability : public GameTest {
protected:
    // An installation of the first version, damaged in places, with files of the player's own.
    void InstallDamaged() {
        Install("1.0", FirstGame());
        WriteFile("halcyrix.lfv", kForeignRecord + ReadFile("halcyrix.lfv"));
        fs::resize_file("drivers/lib.so", 9000);
        WriteFile("manual.html", "spoilt");
        WriteFile("mine", "the player's own");
    }
};

TEST_F(Reliability, OfAnUpdaterThatIsKilledBeforeEachCallThatChangesFiles) {
    Publish("1.0", FirstGame());
    Publish("1.1", NextGame());
    const ServingProgram server(StorePath(), "127.0.0.1");
    const std::string updater = "'" HEADLESS_UPDATER "' linux64 common";
    int kills = 0;
    for (const std::string call : {"unlink", "rename", "mkdir", "fsync", "write"}) {
        // Most files have many writes alike.
        for (int n = 1; !HasFailure(); n += call == "write" ? 5 : 1, ++kills) {
            const std::string when = call + ":signal=KILL:when=" + std::to_string(n);
            SCOPED_TRACE(when);
            InstallDamaged();
            const std::string killed =
                "ASAN_OPTIONS=detect_leaks=0 exec strace -f -qqq -o/dev/null -e inject=";
            std::string said;
            const int status = RunProgram({"sh", "-c", killed + when + " " + updater}, &said);
            if (status == 0) break;
            EXPECT_EQ(status, 128 + SIGKILL) << said;
            // Between the deletion of the old records and their new name there are none.
            const std::string records = ReadFile("halcyrix.lfv");
            EXPECT_TRUE((records == "(missing)" ? ReadFile("halcyrix.vtm") : records)
                            .starts_with(kForeignRecord));
            said.clear();
            EXPECT_EQ(RunProgram({"sh", "-c", updater}, &said), 0) << said;
            EXPECT_TRUE(said.starts_with("[")) << "the log's line begins with the time: " << said;
            ExpectInstalled("1.1", NextGame());
            EXPECT_EQ(ReadFile("mine"), "the player's own");
            EXPECT_EQ(ReadFile("data/gone"), FirstGame().at("common/data/gone"));
        }
    }
    EXPECT_GT(kills, 20);
}

TEST_F(Reliability, OfAServerThatSpoilsEveryReplyInEveryWay) {
    const Tree first = {{"linux64/large", SeededBytes(10000, 1)}, {"common/new", "old"}};
    Tree next = first;
    next["linux64/large"] += "a change";
    next["common/new"] = SeededBytes(60, 3);
    next["common/empty"] = "";
    Publish("1.0", first);
    Publish("1.1", next);
    ServingProgram server(StorePath(), "127.0.0.2");
    std::mt19937 random(1);
    const std::pair<const char*, std::function<Instead(const std::string&)>> ways[] = {
        {"withheld", [](auto&) { return Instead{""}; }},
        {"doubled", [](auto& reply) { return Instead{FrameOf(reply) + FrameOf(reply)}; }},
        {"empty", [](auto&) { return Instead{FrameOf("")}; }},
        {"oversize", [](auto&) { return Instead{"\x1f\xff" + std::string(8191, 'x')}; }},
        {"cut", [&](auto& reply) { return Instead{FrameOf(reply.substr(0, random() % 16))}; }},
        {"closed",
         [](auto& r) {
             return Instead{FrameOf(r).substr(0, 9), Instead::kHangUp};
         }},
    };
    for (const std::string version : {"", "1.0"}) {
        for (const auto& row : ways) {
            const auto& way = row.first;
            const auto& spoil = row.second;
            for (int spoilt = 0; spoilt < 20 && !HasFailure(); ++spoilt) {
                SCOPED_TRACE(std::to_string(spoilt) + " " + way + ", from " + version);
                Install(version, first);
                if (version.empty()) WriteFile("large", first.at("linux64/large").substr(0, 9000));
                WriteFile("mine", "the player's own");
                WriteFile("../outside", "untouched");
                {
                    const Rule rule = [&](const Passing& passing) -> std::optional<Instead> {
                        if (passing.isRequest || passing.number != spoilt) return {};
                        return spoil(passing.payload);
                    };
                    Relay relay(rule, 20);
                    Session hostile;
                    hostile.RunGame();
                }
                Session honest;
                EXPECT_GE(honest.RunGame(), 0) << honest.log.Text();
                ExpectInstalled("1.1", next);
                EXPECT_EQ(ReadFile("mine"), "the player's own");
                EXPECT_EQ(ReadFile("../outside"), "untouched");
            }
        }
    }
}

TEST_F(Reliability, OfAServerThatSendsWithoutEnd) {
    const auto file = [](size_t n) { return Encode(FileListEntry{std::string(n, 'n'), 1, 1}); };
    const std::tuple<std::string, std::vector<std::string>, const char*> floods[] = {
        {"MOTD", {std::string(8000, 'x')}, "a message of the day without end!  aborting!\n"},
        {"GETV", {file(4080)}, "a file list without end!  aborting!\n"},
        {"GETV", std::vector(1000, file(1)), "a file list without end!  aborting!\n"},
    };
    for (const auto& [tag, packets, log] : floods) {
        Relay relay(Answer({{tag, packets}}, Instead::kAgainAndAgain));
        Session session;
        session.client.Start(tag == "MOTD", "linux64", nullptr);
        EXPECT_EQ(session.Run(), -1);
        EXPECT_THAT(session.log.Text(), testing::EndsWith(log));
    }
}

}  // namespace
