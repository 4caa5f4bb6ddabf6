#include "lib/patch_buffer.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <optional>
#include <sstream>

#include "tests/support/patch_model.h"
#include "tests/support/scratch_dir.h"

namespace {

// Runs a patch over the file "old": the new contents, unless it is refused.
std::optional<std::string> RunPatch(const std::string& patch) {
    WriteFile("patch", patch);
    PatchBuffer patched;
    if (!patched.Load("patch", "old") || !patched.WriteFile("new", nullptr)) return std::nullopt;
    return ReadFile("new");
}

TEST(Patch, RunsItsCommands) {
    ScratchDir scratch;
    const std::string old = SeededBytes(100, 1);
    WriteFile("old", old);
    const std::pair<std::string, std::string> cases[] = {
        {"", old},
        {Literal("hello") + "R", "hello"},
        {Copy(0, 100) + Literal("") + Copy(100, 0) + "RRR", old},
        {Copy(90, 10) + Literal("abc") + Copy(0, 5) + "R" + Copy(8, 7) + Copy(9, 5) + "R",
         old.substr(98) + "abc" + old.substr(0, 2) + old.substr(99) + "abc" + old.substr(0, 1)}};
    testing::internal::CaptureStdout();
    for (const auto& [patch, contents] : cases) EXPECT_EQ(RunPatch(patch), contents);
    EXPECT_EQ(RunPatch(Literal("hi")), "hi");
    EXPECT_FALSE(RunPatch(Literal("hi") + "Rc"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "warning: no terminator on patch patch\n"
              "Unknown patch command 63 in patch!\naborting...");
}

TEST(Patch, IsRefusedWhenItReachesOutsideOrIsCutOff) {
    ScratchDir scratch;
    WriteFile("old", std::string(100, 'x'));
    std::vector<std::string> patches = {Copy(0, 101),
                                        Copy(101, 0),
                                        Copy(0xFFFFFFFF, 1),
                                        Copy(1, 0xFFFFFFFF),
                                        "L" + Number(0xFFFFFFFF) + "R",
                                        Literal("abc") + "R" + Copy(1, 3)};
    for (const std::string& command : {Copy(0, 3), Literal("data")}) {
        for (size_t cut = 1; cut < command.size(); ++cut) patches.push_back(command.substr(0, cut));
    }
    for (const std::string& patch : patches) {
        EXPECT_FALSE(RunPatch("R" + patch)) << testing::PrintToString(patch);
    }
    EXPECT_FALSE(PatchBuffer().Load(".", "old"));
    EXPECT_FALSE(PatchBuffer().Load("old", "."));
}

TEST(Patch, KeepsToTheLimitsOfSizeAndMemory) {
    ScratchDir scratch;
    WriteFile("old", "");
    const auto loads = [](uint64_t oldSize, const std::string& patch) {
        std::filesystem::resize_file("old", oldSize);  // takes no room: the file is all hole
        WriteFile("patch", patch);
        return PatchBuffer().Load("patch", "old");
    };
    const uint32_t half = 0x80000000;
    EXPECT_TRUE(loads(half, Copy(0, half) + Copy(0, half - 1) + "R"));
    EXPECT_FALSE(loads(half, Copy(0, half) + Copy(0, half) + "R" + Copy(0, 1) + "R"));
    EXPECT_TRUE(loads(0xFFFFFFFF, ""));
    EXPECT_FALSE(loads(0x100000000, ""));

    std::string doubling;
    for (uint32_t size = 1; size < half; size *= 2) doubling += Copy(0, size) + Copy(0, size) + "R";
    EXPECT_FALSE(loads(1, doubling));
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    EXPECT_LT(usage.ru_maxrss, 1024 * 1024) << "KiB";
}

// The bytes of a fenced block in the document of the format: hexadecimal, with remarks after two
// blanks.
std::string DocumentedBytes(const std::string& name) {
    const std::string text = ReadFile(HALCYRIX_SOURCE_DIR "/docs/patch-format.md");
    const size_t begin = text.find("```" + name + "\n");
    std::istringstream block(text.substr(begin, text.find("\n```\n", begin) - begin));
    std::string bytes;
    for (std::string line; std::getline(block, line);) {
        std::istringstream digits(line.substr(0, line.find("  ")));
        for (int byte; digits >> std::hex >> byte;) bytes += static_cast<char>(byte);
    }
    return bytes;
}

TEST(Patch, DoesWhatItsDocumentShows) {
    ScratchDir scratch;
    WriteFile("old", DocumentedBytes("old"));
    EXPECT_EQ(ReadFile("old"), "The quick brown fox");
    EXPECT_EQ(RunPatch(DocumentedBytes("patch")), "The red fox fox");
    EXPECT_EQ(ReadFile("new"), DocumentedBytes("new"));
}

}  // namespace
