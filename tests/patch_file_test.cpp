#include "lib/patch_file.h"

#include <gmock/gmock.h>

#include <functional>

#include "halcyrix_config.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/small_disk.h"

namespace {

using namespace std::literals;
namespace fs = std::filesystem;
using testing::ElementsAre;

const std::string kHello = "L\0\0\0\5helloR"s;

std::string Contents(const std::string& path) {
    return fs::is_directory(path) ? "(directory)" : ReadFile(path);
}

// Interferes while the new contents are being written.
struct Meddler : RecordingProgress {
    void SetProgress(int32_t, int32_t) override { meddle(); }

    std::function<void()> meddle;
};

TEST(PatchFile, PutsTheNewContentsInTheTargetsPlace) {
    ScratchDir scratch;
    RecordingLog log;
    RecordingProgress progress;
    const std::string target = "data/" + std::string(245, 'n');
    WriteFile(target, "old");
    WriteFile("patch", kHello);
    ApplyDownloadedPatch(target, "patch", &progress);
    EXPECT_EQ(ReadFile(target), "hello");
    EXPECT_FALSE(fs::exists(target + ".tmp"));
    EXPECT_FALSE(fs::exists("patch"));
    EXPECT_THAT(progress.statuses, ElementsAre("Patching " + target + "..."));
    EXPECT_THAT(progress.progress, ElementsAre(testing::Pair(5, 5)));
    EXPECT_EQ(log.Text(), "");
}

TEST(PatchFile, LeavesThisBehindWhenItFails) {
    const std::string missing = "(missing)";
    const std::string loading = "Failed to load file patch patch\n";
    const std::function<void()> nothing = [] {};
    const struct {
        std::string patch;
        std::function<void()> before;
        std::function<void()> meddle;
        std::string log;
        std::string target;
        std::string temporary;
    } cases[] = {
        {"Lcut", nothing, nothing, loading, "old", missing},
        {kHello, [] { fs::remove("patch"); }, nothing, loading, "old", missing},
        {kHello, [] { fs::remove("file"); }, nothing, loading, missing, missing},
        {kHello, [] { fs::create_directory("file.tmp"); }, nothing,
         "Failed to write patched file: file.tmp\n", "old", "(directory)"},
        {kHello, nothing, [] { fs::remove("file"), fs::create_directory("file"); }, "",
         "(directory)", "hello"},
        {kHello, nothing, [] { fs::remove("file.tmp"); }, "Unable to move file.tmp to file?!\n",
         missing, missing},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.log);
        ScratchDir scratch;
        RecordingLog log;
        Meddler progress;
        progress.meddle = c.meddle;
        WriteFile("file", "old");
        WriteFile("patch", c.patch);
        c.before();
        EXPECT_FALSE(PatchFile("file", "patch", &progress));
        EXPECT_EQ(log.Text(), c.log);
        EXPECT_EQ(Contents("file"), c.target);
        EXPECT_EQ(Contents("file.tmp"), c.temporary);
    }
}

TEST(PatchFile, KeepsTheOldFileOnAFullDisk) {
    ScratchDir scratch;
    SmallDisk disk("disk");
    RecordingLog log;
    RecordingProgress progress;
    const std::string old = SeededBytes(SmallDisk::kSize / 2, 1);
    WriteFile("disk/file", old);
    const std::string half = "C\0\0\0\0\0\0\x80\0"s;
    WriteFile("patch", half + half + half + "R");
    ApplyDownloadedPatch("disk/file", "patch", &progress);
    EXPECT_EQ(ReadFile("disk/file"), old);
    EXPECT_GT(fs::file_size("disk/file.tmp"), 0u);
    EXPECT_FALSE(fs::exists("patch"));
    EXPECT_EQ(log.Text(),
              "Failed to write patched disk/file: disk/file.tmp\n"
              "patch for disk/file failed!\n"
              "I'm afraid you'll have to re-run the updater\nand re-download this file.  "
              "Your harddrive is full\nor " HALCYRIX_SUPPORT_EMAIL " screwed something up.\n");
}

}  // namespace
