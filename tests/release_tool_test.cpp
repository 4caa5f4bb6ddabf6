#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>

#include "release/checker.h"
#include "tests/support/sample_store.h"
#include "tests/support/scratch_dir.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// The exit status of the program; its words are in the files "out" and "err".
int RunTool(const std::string& arguments) {
    const std::string command = RELEASE_TOOL " >out 2>err </dev/null " + arguments;
    const int status = system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(ReleaseTool, TellsUsageFromProblems) {
    ScratchDir scratch;
    WriteFile("old", Noise(1000, 1));
    WriteFile("new", ReadFile("old") + "new");
    WriteFile("bad", "x");
    WriteFile("result", "kept");
    WriteFile("game/file", "");
    const struct {
        const char* arguments;
        int status;
        const char* out;
        const char* err;
    } cases[] = {
        {"", 2, "", "subcommand"},
        {"frobnicate", 2, "", "subcommand"},
        {"--help", 0, "publish", ""},
        {"--version", 0, "halcyrix-release ", ""},
        {"publish --version", 0, "halcyrix-release ", ""},
        {"apply --help", 0, "OLD PATCH RESULT", ""},
        {"diff old new", 2, "", "PATCH"},
        {"publish store 1 game", 2, "", "COMPONENT=DIR"},
        {"publish store 1 common=game --patches-from -1", 2, "", "patches-from"},
        {"diff old new patch", 0, "", ""},
        {"diff old missing other", 1, "", "missing: No such file"},
        {"diff old new none/patch", 1, "", "none/patch"},
        {"show patch", 0, "1 copies of 1000 bytes, 1 literals of 3 bytes, 1 passes", ""},
        {"show bad", 1, "", "unknown command 78"},
        {"apply old patch made", 0, "", ""},
        {"apply old bad result", 1, "", "bad: cannot be applied to old"},
        {"apply bad patch result", 1, "", "patch: cannot be applied to bad"},
        {"apply old patch none/result", 1, "", "none/result"},
        {"publish store 1 common=game", 0, "published 1: 1 files", ""},
        {"publish store 1 common=game", 1, "", "version 1 is published already"},
        {"check store", 0, "1 releases, 1 files of 0 bytes, 0 problems", ""},
        {"check game", 1, "", "game/releases"},
        {"check store >/dev/full", 1, "", "standard output"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        EXPECT_EQ(RunTool(c.arguments), c.status);
        EXPECT_THAT(ReadFile("out"), HasSubstr(c.out));
        EXPECT_THAT(ReadFile("err"), HasSubstr(c.err));
        EXPECT_EQ(ReadFile("err").empty(), c.status == 0);
    }
    EXPECT_EQ(ReadFile("made"), ReadFile("new"));
    EXPECT_EQ(ReadFile("result"), "kept");
    EXPECT_FALSE(fs::exists("result.tmp"));
    EXPECT_FALSE(fs::exists("other"));
}

size_t CountFiles(const fs::path& folder) {
    size_t count = 0;
    std::error_code fault;
    for (fs::recursive_directory_iterator entry(folder, fault), end; !fault && entry != end;
         entry.increment(fault)) {
        if (!entry->is_directory(fault)) ++count;
    }
    return count;
}

// Publishes with the real program, which is killed as soon as the moment has come.
void PublishAndKill(const std::string& version, const std::function<bool()>& moment) {
    const pid_t pid = fork();
    if (pid == 0) {
        execl(RELEASE_TOOL, RELEASE_TOOL, "publish", "store", version.c_str(), "common=game",
              nullptr);
        _exit(127);
    }
    while (!moment() && waitpid(pid, nullptr, WNOHANG) == 0) continue;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

TEST(ReleaseTool, LeavesTheEarlierReleasesWhenItIsKilled) {
    ScratchDir scratch;
    std::string contents = Noise(10000, 1);
    for (int i = 0; i < 100; ++i) WriteFile("game/" + std::to_string(i), contents);
    ASSERT_EQ(PublishSample("before", {{"common", "game"}}), "");
    contents[5000] ^= 1;
    for (int i = 0; i < 100; ++i) WriteFile("game/" + std::to_string(i), contents);
    fs::rename("store", "good");

    const std::string incoming = "store/incoming.000002";
    const struct {
        const char* name;
        std::function<bool()> moment;
    } cases[] = {
        {"begun", [&] { return fs::exists(incoming); }},
        {"some files stored", [&] { return CountFiles(incoming + "/files") > 30; }},
        {"the first patch begun", [&] { return CountFiles(incoming + "/patches") > 0; }},
        {"some patches made", [&] { return CountFiles(incoming + "/patches") > 50; }},
        {"the manifest begun", [&] { return fs::exists(incoming + "/manifest"); }},
        {"the numbers taken", [] { return fs::exists("store/incoming.reserved"); }},
        {"done", [] { return fs::exists("store/releases/000002"); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove_all("store");
        fs::copy("good", "store", fs::copy_options::recursive);
        PublishAndKill("killed", c.moment);
        EXPECT_THAT(CheckStore("store").problems, IsEmpty());
        ASSERT_NE(OpenSample(), nullptr);
        EXPECT_NE(OpenSample()->Find("before"), nullptr);

        ASSERT_EQ(PublishSample("after", {{"common", "game"}}), "");
        EXPECT_THAT(CheckStore("store").problems, IsEmpty());
        for (const fs::directory_entry& entry : fs::directory_iterator("store")) {
            EXPECT_FALSE(entry.path().filename().string().starts_with("incoming")) << entry.path();
        }
    }
}

}  // namespace
