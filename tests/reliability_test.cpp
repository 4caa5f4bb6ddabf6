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
    void ExpectFinished() {
        ExpectInstalled("1.1", NextGame());
        EXPECT_EQ(ReadFile("mine"), "the player's own");
        EXPECT_EQ(ReadFile("data/gone"), FirstGame().at("common/data/gone"));
    }

    // Kills a program before each of the calls that change files; has `again` happen after each.
    static int KillEverywhere(const std::string& command, const std::function<void()>& prepare,
                              const std::function<void()>& again) {
        int kills = 0;
        for (const std::string call :
             {"unlink", "unlinkat", "rename", "link", "mkdir", "fsync", "ftruncate", "write"}) {
            // Most files have many writes alike.
            for (int n = 1; !HasFailure(); n += call == "write" ? 5 : 1, ++kills) {
                const std::string when = call + ":signal=KILL:when=" + std::to_string(n);
                SCOPED_TRACE(when);
                prepare();
                std::string said;
                const int status = RunProgram({"sh", "-c",
                                               "ASAN_OPTIONS=detect_leaks=0 exec strace -f -qqq "
                                               "-o/dev/null -e inject=" +
                                                   when + " " + command},
                                              &said);
                if (status == 0) break;
                EXPECT_EQ(status, 128 + SIGKILL) << said;
                again();
            }
        }
        return kills;
    }
};

TEST_F(Reliability, OfAnUpdaterThatIsKilledAnywhere) {
    Publish("1.0", FirstGame());
    Publish("1.1", NextGame());
    const ServingProgram server(StorePath(), "127.0.0.1");
    const std::string updater = "'" HEADLESS_UPDATER "' linux64 common";
    const auto again = [&] {
        // Between the deletion of the old records and their new name there are none.
        const bool replacing = !fs::exists("halcyrix.lfv");
        EXPECT_TRUE(ReadFile(replacing ? "halcyrix.vtm" : "halcyrix.lfv").starts_with("12345678"));
        std::string said;
        EXPECT_EQ(RunProgram({"sh", "-c", updater}, &said), 0) << said;
        EXPECT_TRUE(said.starts_with("[")) << "the log's line begins with the time: " << said;
        ExpectFinished();
    };
    const auto prepare = [this] { InstallDamaged(); };
    EXPECT_GT(KillEverywhere(updater, prepare, again), 20);
}

TEST_F(Reliability, OfAPublishThatIsKilledAnywhere) {
    Publish("1.0", FirstGame());
    WriteFile("../new/data/large", NextGame().at("common/data/large"));
    fs::copy(StorePath(), "../before", fs::copy_options::recursive);
    const std::string publish =
        "'" RELEASE_TOOL "' publish '" + StorePath() + "' 1.1 common=../new";
    const auto prepare = [this] {
        fs::remove_all(StorePath());
        fs::copy("../before", StorePath(), fs::copy_options::recursive);
    };
    const auto stored = [this] {
        return std::distance(fs::recursive_directory_iterator(StorePath()), {});
    };
    prepare();
    ASSERT_EQ(RunProgram({"sh", "-c", publish}), 0);
    const auto complete = stored();
    const auto again = [&] {
        std::string said;
        EXPECT_EQ(RunProgram({RELEASE_TOOL, "check", StorePath()}, &said), 0) << said;
        const bool published = said.starts_with("2 releases");
        EXPECT_EQ(RunProgram({"sh", "-c", publish}, &said), published ? 1 : 0) << said;
        EXPECT_EQ(stored(), complete) << "nothing is left of the killed one";
    };
    EXPECT_GT(KillEverywhere(publish, prepare, again), 10);
}

}  // namespace
