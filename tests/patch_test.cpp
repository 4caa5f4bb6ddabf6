// Spans and patches. Whatever a patch says, the file then holds what the format's description makes
// of it, or is as it was.
#include "fuzz/patch_model.h"
#include "lib/patch_buffer.h"
#include "lib/patch_file.h"
#include "lib/patch_format.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"

namespace {

namespace fs = std::filesystem;

class Patch : public testing::Test {
protected:
    bool Apply(const std::string& old, const std::string& patch) {
        WriteFile("file", old);
        WriteFile("patch", patch);
        return PatchFile("file", "patch", &progress);
    }
    // The same, compared with the description.
    void Try(const std::string& old, const std::string& patch) {
        const std::optional<std::string> expected = Model(old, patch);
        // Nobody makes an empty file by a patch: it cannot be written.
        const bool makes = expected && !expected->empty();
        EXPECT_EQ(Apply(old, patch), makes) << testing::PrintToString(patch);
        EXPECT_TRUE(ReadFile("file") == (makes ? *expected : old)) << testing::PrintToString(patch);
    }

    ScratchDir scratch;
    RecordingLog log;
    RecordingProgress progress;
};

TEST_F(Patch, DoesWhatTheDescriptionSays) {
    testing::internal::CaptureStdout();
    const std::string old = SeededBytes(20000, 1);
    const std::string whole = Copy(90, 9000) + Literal("abc") + Copy(0, 5) + "R" + Copy(8, 9002) +
                              Literal("") + Copy(9008, 0) + Copy(9, 5) + "RRR" + Literal(old);
    for (size_t cut = 0; cut < 60; ++cut) Try(old, whole.substr(0, cut));
    for (const std::string& patch : {whole, Copy(0, 20000), Copy(0, 20001), Copy(20001, 0),
                                     Copy(0xFFFFFFFF, 1), "L" + Number(0xFFFFFFFF)}) {
        Try(old, patch + "R");
    }
    testing::internal::GetCapturedStdout();
}

TEST_F(Patch, TellsWhatItDoesAndWhyItFails) {
    testing::internal::CaptureStdout();
    EXPECT_TRUE(Apply("old", Literal(std::string(5000, 'x')) + Literal("yz")));
    EXPECT_EQ(progress.statuses.back(), "Patching file...");
    EXPECT_EQ(progress.progress,
              (std::vector<std::pair<int, int>>{{4096, 5002}, {5000, 5002}, {5002, 5002}}));
    EXPECT_FALSE(fs::exists("file.tmp"));
    EXPECT_FALSE(Apply("old", Literal("hi") + "Rc"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "warning: no terminator on patch patch\n"
              "Unknown patch command 63 in patch!\naborting...");
    EXPECT_FALSE(PatchFile("file", ".", &progress));
    EXPECT_FALSE(PatchFile("missing", "patch", &progress));
    {
        const FileSizeLimit full(8191);
        EXPECT_FALSE(Apply(SeededBytes(6000, 1), Copy(0, 6000) + Copy(0, 6000) + "R"));
    }
    EXPECT_EQ(ReadFile("file"), SeededBytes(6000, 1));
    EXPECT_EQ(ReadFile("file.tmp").size(), 8191u);
    // What may happen while the new contents are written.
    progress.onProgress = [](int, int) { fs::remove("file"), fs::create_directory("file"); };
    EXPECT_FALSE(Apply("old", Literal("hello") + "R"));
    EXPECT_EQ(ReadFile("file.tmp"), "hello");
    fs::remove("file");
    progress.onProgress = [](int, int) { fs::resize_file("file", 9); };
    EXPECT_FALSE(Apply(SeededBytes(60000, 1), Copy(0, 60000) + "R")) << "not all could be read";
    progress.onProgress = [](int, int) { fs::remove("file.tmp"); };
    EXPECT_FALSE(Apply("old", Literal("hello") + "R"));
    EXPECT_EQ(log.Text(),
              "Failed to load file patch patch\nFailed to load file patch .\n"
              "Failed to load missing patch patch\nFailed to write patched file: file.tmp\n"
              "Failed to write patched file: file.tmp\n"
              "Unable to move file.tmp to file?!\n");
}

TEST_F(Patch, KeepsToTheLimitsOfSizeAndMemory) {
    WriteFile("old", "");
    const auto loads = [](uint64_t oldSize, const std::string& patch) {
        fs::resize_file("old", oldSize);  // takes no room: the file is all hole
        WriteFile("patch", patch);
        return PatchBuffer().Load("patch", "old");
    };
    const uint32_t half = 0x80000000;
    EXPECT_TRUE(loads(half, Copy(0, half) + Copy(0, half - 1) + "R"));
    EXPECT_FALSE(loads(half, Copy(0, half) + Copy(0, half) + "R" + Copy(0, 1) + "R"));
    EXPECT_TRUE(loads(0xFFFFFFFF, ""));
    EXPECT_FALSE(loads(0x100000000, ""));

    std::string doubling, long_pass;
    for (uint32_t size = 1; size < half; size *= 2) doubling += Copy(0, size) + Copy(0, size) + "R";
    EXPECT_FALSE(loads(1, doubling));
    long_pass = Copy(0, 1);
    while (long_pass.size() <= kMaxPatchSpans * kPatchCopySize) long_pass += long_pass;
    long_pass.resize((kMaxPatchSpans + 1) * kPatchCopySize);
    EXPECT_TRUE(loads(1, long_pass + "R")) << "one pass may have any number of commands";
}

}  // namespace
