#include "release/delta.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "lib/patch_buffer.h"
#include "tests/support/sample_store.h"
#include "tests/support/scratch_dir.h"

namespace {

std::string Repeated(const std::string& unit, size_t times) {
    std::string text;
    for (size_t i = 0; i < times; ++i) text += unit;
    return text;
}

std::string Edited(std::string text, size_t every, uint32_t seed) {
    std::mt19937 random(seed);
    for (size_t i = 0; i < text.size(); i += every) text[i + random() % (every / 2)] ^= 0x55;
    return text;
}

std::string Patched(const std::string& patch, const std::string& from) {
    PatchBuffer patched;
    if (!patched.Load(patch, from) || !patched.WriteFile("patched", nullptr)) return "(no patch)";
    return ReadFile("patched");
}

// The bounds are what a patch by hand takes: 9 bytes for a copy, 5 and the data for a literal, 1 in
// the end.
TEST(Delta, MakesAPatchOfTheExpectedSizeForEveryChange) {
    ScratchDir scratch;
    const std::string noise = Noise(100000, 1);
    const std::string other = Noise(100000, 2);
    const struct {
        const char* change;
        std::string from;
        std::string to;
        size_t largest;
    } cases[] = {
        {"nothing", noise, noise, 10},
        {"from an empty file", "", noise, noise.size() + 6},
        {"to one byte", noise, "x", 7},
        {"everything", noise, other, noise.size() + 6},
        {"cut in front", noise, noise.substr(777), 10},
        {"cut at the end", noise, noise.substr(0, 777), 10},
        {"grown in front", noise, "new" + noise, 5 + 3 + 9 + 1},
        {"grown at the end", noise, noise + "new", 9 + 5 + 3 + 1},
        {"inserted", noise, noise.substr(0, 5000) + "new" + noise.substr(5000), 9 + 8 + 9 + 1},
        {"one byte", noise, Edited(noise, 100000, 3), 9 + 6 + 9 + 1},
        {"halves exchanged", noise, noise.substr(50000) + noise.substr(0, 50000), 19},
        {"doubled", noise, noise + noise, 19},
        {"a long insertion", noise, noise.substr(0, 5000) + other + noise.substr(5000),
         9 + 5 + other.size() + 9 + 1},
        // The filter looks at windows of 15 bytes at every fourth place.
        {"a short stretch amid new data", noise, other + noise.substr(5001, 18) + other,
         2 * (5 + other.size()) + 9 + 1},
        {"a gap that a copy covers for less", noise,
         noise.substr(0, 500) + noise.substr(9000, 8) + noise.substr(700), 9 + 9 + 9 + 1},
        {"a gap that a literal covers for less", noise,
         noise.substr(0, 500) + noise.substr(9000, 3) + noise.substr(700), 9 + 8 + 9 + 1},
        {"a copy that only seems to pay", noise + "ABCDEFGH" + other.substr(0, 12),
         other.substr(0, 12) + noise.substr(100), 5 + 12 + 9 + 1},
        {"zeros grown", std::string(50000, '\0'), std::string(99999, '\0'), 19},
        {"zeros with a change here and there", std::string(50000, '\0'),
         Edited(std::string(50000, '\0'), 1000, 4), 50 * 15 + 10},
        {"a repeated pattern with changes", Repeated(noise.substr(0, 100), 1000),
         Edited(Repeated(noise.substr(0, 100), 1000), 1000, 5), 100 * 15 + 10 + 9 * 100},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.change);
        WriteFile("old", c.from);
        WriteFile("new", c.to);
        std::string reason;
        ASSERT_EQ(MakePatch("old", "new", "patch", kNoSizeLimit, &reason), DeltaResult::MADE)
            << reason;
        EXPECT_TRUE(Patched("patch", "old") == c.to);
        EXPECT_LE(ReadFile("patch").size(), c.largest);
        EXPECT_TRUE(VerifyPatch("old", "new", "patch", &reason)) << reason;
    }
}

// Contents of few different bytes have short matches everywhere, so that every choice that the
// maker has comes up.
TEST(Delta, IsRightForManySmallFilesOfFewDifferentBytes) {
    ScratchDir scratch;
    std::mt19937 random(6);
    for (int i = 0; i < 200; ++i) {
        const uint32_t letters = 1 + random() % 4;
        const auto text = [&](size_t size) {
            std::string letter(size, 'a');
            for (char& c : letter) c = static_cast<char>('a' + random() % letters);
            return letter;
        };
        WriteFile("old", text(random() % 300));
        const std::string contents = text(1 + random() % 1000);
        WriteFile("new", contents);
        std::string reason;
        ASSERT_EQ(MakePatch("old", "new", "patch", kNoSizeLimit, &reason), DeltaResult::MADE);
        ASSERT_EQ(Patched("patch", "old"), contents);
        ASSERT_LE(ReadFile("patch").size(), contents.size() + 6);
    }
}

TEST(Delta, MakesNoPatchThatCannotOrShouldNotBe) {
    ScratchDir scratch;
    WriteFile("old", Noise(1000, 7));
    WriteFile("new", Noise(1000, 8));
    WriteFile("empty", "");
    std::string reason;
    EXPECT_EQ(MakePatch("old", "empty", "patch", kNoSizeLimit, &reason), DeltaResult::NONE);
    EXPECT_EQ(MakePatch("old", "new", "patch", 1005, &reason), DeltaResult::NONE);
    EXPECT_EQ(MakePatch("old", "missing", "patch", 1006, &reason), DeltaResult::FAILED);
    EXPECT_FALSE(std::filesystem::exists("patch"));
    EXPECT_EQ(MakePatch("old", "new", "patch", 1006, &reason), DeltaResult::MADE);
}

TEST(Delta, ShowsAPatchThatMakesSomethingElse) {
    ScratchDir scratch;
    const std::string noise = Noise(70000, 9);
    WriteFile("old", noise);
    WriteFile("new", noise + "!");
    std::string error;
    ASSERT_EQ(MakePatch("old", "new", "patch", kNoSizeLimit, &error), DeltaResult::MADE);
    WriteFile("other", noise + "?");
    EXPECT_FALSE(VerifyPatch("old", "other", "patch", &error));
    WriteFile("longer", noise + "!!");
    EXPECT_FALSE(VerifyPatch("old", "longer", "patch", &error));
    EXPECT_FALSE(VerifyPatch("empty", "new", "patch", &error));
}

}  // namespace
