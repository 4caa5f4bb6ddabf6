#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "store/checker.h"
#include "store/pruner.h"
#include "tests/support/programs.h"
#include "tests/support/sample_store.h"
#include "tests/support/scratch_dir.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

TEST(ReleaseTool, TellsUsageFromProblems) {
    ScratchDir scratch;
    WriteFile("old", SeededBytes(9000, 1));
    WriteFile("made", ReadFile("old"));
    WriteFile("new", ReadFile("old") + "new");
    WriteFile("bad", "x");
    WriteFile("result", "kept");
    WriteFile("game/file", "");
    const std::tuple<std::string, int, const char*> cases[] = {
        {"", 2, "subcommand"},
        {"publish --version", 0, "halcyrix-release "},
        {"publish store 1 game", 2, "COMPONENT=DIR"},
        {"publish store 1 common=game --patches-from -1", 2, "patches-from"},
        {"diff old new patch", 0, ""},
        {"diff old missing other", 1, "missing: No such file"},
        {"diff old new none/patch", 1, "none/patch"},
        {"show patch", 0, "1 copies of 9000 bytes, 1 literals of 3 bytes, 1 passes"},
        {"show bad", 1, "unknown command 78"},
        {"apply made patch made", 0, ""},
        {"apply old bad result", 1, "bad: cannot be applied to old"},
        {"apply old patch none/result", 1, "none/result"},
        {"publish store 1 common=game", 0, "published 1: 1 files"},
        {"publish store 1 common=game", 1, "version 1 is published already"},
        {"check store", 0, "1 releases, 1 files of 0 bytes, 0 problems"},
        {"check game", 1, "game/releases"},
        {"check store >/dev/full", 1, "standard output"},
        {"prune store --keep 0", 2, "--keep"},
        {"prune none --keep 1", 1, "none/releases"},
        {"prune store --keep 1", 0, "0 releases removed, 1 kept"},
    };
    for (const auto& [arguments, status, says] : cases) {
        std::string said;
        EXPECT_EQ(RunProgram({"/bin/sh", "-c", RELEASE_TOOL " " + arguments}, &said), status);
        EXPECT_THAT(said, HasSubstr(says)) << arguments;
    }
    EXPECT_EQ(ReadFile("made"), ReadFile("new"));
    EXPECT_EQ(ReadFile("result"), "kept");
    EXPECT_FALSE(fs::exists("result.tmp") || fs::exists("other"));
}

TEST(ReleaseTool, PrunesWhatNewerReleasesReplace) {
    ScratchDir scratch;
    for (const char* version : {"1", "2", "3"}) {
        WriteFile("game/file", version);
        ASSERT_EQ(PublishSample(version), "");
    }
    const auto served = OpenSample();
    // What a pruning that was killed leaves.
    fs::copy("store/releases/000001", "store/incoming.removed.000001", fs::copy_options::recursive);
    std::string said;
    EXPECT_EQ(RunProgram({RELEASE_TOOL, "prune", "store", "--keep", "1"}, &said), 0);
    EXPECT_EQ(said, "removed 1\nremoved 2\n2 releases removed, 1 kept\n");
    EXPECT_FALSE(fs::exists("store/incoming.removed.000001"));
    EXPECT_THAT(CheckStore("store").problems, IsEmpty());

    served->Refresh();
    EXPECT_EQ(served->Find("2"), nullptr);
    EXPECT_EQ(served->Latest({"common"})->Version(), "3");
    RecordingObserver observer;
    observer.onProgress = [](const std::string&) {
        EXPECT_EQ(RunProgram({RELEASE_TOOL, "prune", "store", "--keep", "1"}, nullptr), 1);
    };
    ASSERT_EQ(PublishSample("4", {{"common", "game"}}, 3, &observer), "");
    EXPECT_EQ(OpenSample()->Find("4")->Sequence(), 4u);
}

TEST(ReleaseTool, NeverPrunesTheNewestReleaseForAnyComponents) {
    ScratchDir scratch;
    WriteFile("tree/file", "");
    // The components of each release by a letter, how many to keep, and which go.
    const std::tuple<std::vector<std::string>, size_t, const char*> cases[] = {
        {{"g", "g", "g"}, 2, "0"},       {{"g", "g", "g"}, 3, ""},
        {{"g", "u", "g", "g"}, 1, "02"}, {{"gu", "g", "u"}, 1, ""},
        {{"gu", "g", "gu"}, 1, "01"},    {{"ab", "bc", "abc", "b"}, 1, "01"},
    };
    for (const auto& [releases, keep, gone] : cases) {
        fs::remove_all("store");
        for (size_t number = 0; number < releases.size(); ++number) {
            std::vector<ComponentSource> sources;
            for (const char letter : releases[number]) sources.push_back({{letter}, "tree"});
            ASSERT_EQ(PublishSample(std::to_string(number), sources), "");
        }
        std::string removed;
        for (const auto& release : SupersededReleases(OpenSample()->Releases(), keep)) {
            removed += release->Version();
        }
        EXPECT_EQ(removed, gone);
    }
}

auto CountFiles(const std::string& folder) {
    std::error_code none;
    const fs::directory_iterator files(folder, none);
    return std::distance(begin(files), end(files));
}

// Publishes with the real program, which is killed as soon as the moment has come.
void PublishAndKill(const std::function<bool()>& moment) {
    const pid_t pid = fork();
    if (pid == 0) {
        execl(RELEASE_TOOL, RELEASE_TOOL, "publish", "store", "2", "common=game", nullptr);
        _exit(127);
    }
    while (!moment() && waitpid(pid, nullptr, WNOHANG) == 0) continue;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

TEST(ReleaseTool, LeavesTheEarlierReleasesWhenItIsKilled) {
    ScratchDir scratch;
    const auto makeGame = [](const std::string& contents) {
        for (int i = 0; i < 100; ++i) WriteFile("game/" + std::to_string(i), contents);
    };
    makeGame(SeededBytes(10000, 1));
    ASSERT_EQ(PublishSample("before"), "");
    makeGame(SeededBytes(10000, 1) + "more");
    fs::rename("store", "good");

    const std::string incoming = "store/incoming.000002";
    const std::pair<const char*, std::function<bool()>> cases[] = {
        {"begun", [&] { return fs::exists(incoming); }},
        {"some files stored", [&] { return CountFiles(incoming + "/files/common") > 30; }},
        {"some patches made", [&] { return CountFiles(incoming + "/patches") > 50; }},
        {"the manifest begun", [&] { return fs::exists(incoming + "/manifest"); }},
        {"the numbers taken", [] { return fs::exists("store/incoming.reserved"); }},
        {"done", [] { return fs::exists("store/releases/000002"); }},
    };
    for (const auto& [name, moment] : cases) {
        SCOPED_TRACE(name);
        fs::remove_all("store");
        fs::copy("good", "store", fs::copy_options::recursive);
        PublishAndKill(moment);
        EXPECT_THAT(CheckStore("store").problems, IsEmpty());
        ASSERT_NE(OpenSample(), nullptr);
        EXPECT_NE(OpenSample()->Find("before"), nullptr);

        ASSERT_EQ(PublishSample("after"), "");
        EXPECT_THAT(CheckStore("store").problems, IsEmpty());
        EXPECT_FALSE(fs::exists(incoming) || fs::exists("store/incoming.reserved"));
    }
}

}  // namespace
