// Patches that are damaged, cut off or made up. The target then holds what the format says or is as
// it was, and nothing is left half-written.

#include <gtest/gtest.h>

#include <random>

#include "delta/delta.h"
#include "lib/patch_file.h"
#include "tests/support/memory_use.h"
#include "tests/support/patch_model.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_disk.h"

namespace {

class HostilePatch : public testing::Test {
protected:
    // Returns whether the patch was applied.
    bool Apply(const std::string& old, const std::string& patch) {
        WriteFile("file", old);
        WriteFile("patch", patch);
        RecordingLog log;
        RecordingProgress progress;
        const bool done = PatchFile("file", "patch", &progress);
        const std::optional<std::string> expected = Model(old, patch);
        // Nobody makes an empty file by a patch: it cannot be written.
        EXPECT_EQ(done, expected.has_value() && !expected->empty()) << log.Text();
        EXPECT_TRUE(ReadFile("file") == (done ? *expected : old)) << log.Text();
        EXPECT_TRUE(!done || !std::filesystem::exists("file.tmp"));
        return done;
    }

    ~HostilePatch() override {
        testing::internal::GetCapturedStdout();
        printf("%d patches, %d of them applied\n", patches, applied);
    }
    HostilePatch() { testing::internal::CaptureStdout(); }

    void Count(bool wasApplied) {
        ++patches;
        applied += wasApplied;
    }

    ScratchDisk disk;
    int patches = 0, applied = 0;
};

TEST_F(HostilePatch, WithEachByteDamagedOrCutOff) {
    const std::string old = SeededBytes(20000, 1);
    std::string latest = old;
    for (unsigned i = 1; i < 9; ++i) latest.replace(i * 2000, 30, SeededBytes(20 + i * 5, i));
    latest = latest.substr(9000) + latest.substr(0, 9000);
    WriteFile("old", old);
    WriteFile("latest", latest);
    std::string reason;
    ASSERT_EQ(MakePatch("old", "latest", "made", kNoSizeLimit, &reason), DeltaResult::MADE);
    const std::string patch = ReadFile("made");
    ASSERT_EQ(Model(old, patch), latest);
    ASSERT_GT(patch.size(), 300u);
    for (size_t at = 0; at < patch.size() && !HasFailure(); ++at) {
        SCOPED_TRACE("at byte " + std::to_string(at));
        Count(Apply(old, patch.substr(0, at)));
        for (const int change : {0x01, 0x80, 0xFF}) {
            std::string damaged = patch;
            damaged[at] = static_cast<char>(damaged[at] ^ change);
            Count(Apply(old, damaged));
        }
    }
}

TEST_F(HostilePatch, OfRandomCommands) {
    std::mt19937 random(1);
    const auto number = [&random](uint32_t below) {
        return static_cast<uint32_t>(random() % below);
    };
    const long before = ResidentKilobytes(getpid());
    for (unsigned seed = 0; seed < 2000 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const std::string old = SeededBytes(number(300), seed);
        std::string patch;
        for (uint32_t commands = number(12); commands > 0; --commands) {
            switch (number(12)) {
                case 0: patch += SeededBytes(number(6), seed); break;
                case 1: patch += "L" + Number(number(30)) + "too few"; break;
                case 2: patch += "R"; break;
                case 3: patch += Copy(static_cast<uint32_t>(random()), number(9)); break;
                case 4:
                case 5: patch += Literal(SeededBytes(number(40), seed)); break;
                default: patch += Copy(number(150), number(100));
            }
        }
        Count(Apply(old, patch + (number(4) != 0 ? "R" : "")));
    }
    if (kMeasuresMemory) {
        EXPECT_LT(ResidentKilobytes(getpid()) - before, 16 * 1024);
    }
}

}  // namespace
