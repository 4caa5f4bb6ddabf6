#include "lib/patch_file.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/small_disk.h"

namespace {

using namespace std::literals;
namespace fs = std::filesystem;

// Calls while the new contents are being written.
struct Meddler : RecordingProgress {
    void SetProgress(int32_t, int32_t) override { meddle(); }

    std::function<void()> meddle = [] {};
};

TEST(PatchFile, TellsWhyItFails) {
    // Before the patch is run or while the result is written; with a file that is left, in the end.
    const std::tuple<bool, std::function<void()>, std::string, std::string, std::string> cases[] = {
        {true, [] { fs::remove("file"); }, "Failed to load file patch patch\n", "file.tmp",
         "(missing)"},
        {true, [] { fs::create_directory("file.tmp"); }, "Failed to write patched file: file.tmp\n",
         "file", "old"},
        {false, [] { fs::remove("file"), fs::create_directory("file"); }, "", "file.tmp", "hello"},
        {false, [] { fs::remove("file.tmp"); }, "Unable to move file.tmp to file?!\n", "file",
         "(missing)"}};
    for (const auto& [early, fault, text, left, contents] : cases) {
        ScratchDir scratch;
        RecordingLog log;
        Meddler progress;
        WriteFile("file", "old");
        WriteFile("patch", "L\0\0\0\5helloR"s);
        early ? fault() : void(progress.meddle = fault);
        EXPECT_FALSE(PatchFile("file", "patch", &progress));
        EXPECT_EQ(log.Text(), text);
        EXPECT_EQ(ReadFile(left), contents) << text;
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
    EXPECT_FALSE(PatchFile("disk/file", "patch", &progress));
    EXPECT_EQ(ReadFile("disk/file"), old);
    EXPECT_EQ(log.Text(), "Failed to write patched disk/file: disk/file.tmp\n");
}

}  // namespace
