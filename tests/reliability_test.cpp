// What ends in the middle, finds no room or never stops: nothing is lost or grows, and the next
// start that is left alone finishes (docs/reliability.md).
#include "lib/version_records.h"
#include "tests/support/game.h"
#include "tests/support/session.h"

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

}  // namespace
