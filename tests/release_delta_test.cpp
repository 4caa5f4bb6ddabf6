#include "delta/delta.h"

#include <gtest/gtest.h>

#include <random>

#include "lib/patch_buffer.h"
#include "tests/support/scratch_dir.h"

namespace {

std::string Edited(std::string text, size_t every, unsigned seed) {
    std::mt19937 random(seed);
    for (size_t i = 0; i < text.size(); i += every) text[i + random() % (every / 2)] ^= 0x55;
    return text;
}

// Makes the patch and applies it; returns its size.
size_t PatchSize(const std::string& from, const std::string& to) {
    WriteFile("old", from);
    WriteFile("new", to);
    std::string reason;
    PatchBuffer patched;
    EXPECT_EQ(MakePatch("old", "new", "patch", kNoSizeLimit, &reason), DeltaResult::MADE) << reason;
    EXPECT_TRUE(patched.Load("patch", "old") && patched.WriteFile("patched", nullptr));
    EXPECT_TRUE(ReadFile("patched") == to);
    return ReadFile("patch").size();
}

// The bounds are what a patch by hand takes: 9 bytes for a copy, 5 and the data for a literal, 1 in
// the end.
TEST(Delta, MakesAPatchOfTheExpectedSizeForEveryChange) {
    ScratchDir scratch;
    const std::string noise = SeededBytes(100000, 1);
    const std::string other = SeededBytes(100000, 2);
    const std::string zeros(50000, '\0');
    const std::string large = SeededBytes(1500001, 8);  // indexed in two parts
    std::string repeated;
    for (int i = 0; i < 1000; ++i) repeated += noise.substr(0, 100);
    const std::tuple<const char*, std::string, std::string, size_t> cases[] = {
        {"nothing", noise, noise, 10},
        {"from an empty file", "", noise, noise.size() + 6},
        {"cut in front", noise, noise.substr(777), 10},
        {"grown at both ends", noise, "new" + noise + "new", 8 + 9 + 8 + 1},
        {"inserted", noise, noise.substr(0, 5000) + "new" + noise.substr(5000), 9 + 8 + 9 + 1},
        {"one byte", noise, Edited(noise, 100000, 3), 9 + 6 + 9 + 1},
        // The filter looks at windows of 15 bytes at every fourth place.
        {"a short stretch amid new data", noise, other + noise.substr(5001, 18) + other,
         2 * (5 + other.size()) + 9 + 1},
        {"a gap that a copy covers for less", noise,
         noise.substr(0, 500) + noise.substr(9000, 8) + noise.substr(700), 9 + 9 + 9 + 1},
        {"a copy that only seems to pay", noise + "ABCDEFGH" + other.substr(0, 12),
         other.substr(0, 12) + noise.substr(100), 5 + 12 + 9 + 1},
        {"a copy that is best begun late", noise + "12345" + noise.substr(5000, 40),
         other.substr(0, 20) + "12345" + noise.substr(5000, 1000), 5 + 25 + 9 + 1},
        {"moved across the parts of the index", large,
         other + large.substr(1200001) + large.substr(1, 1200000), 5 + other.size() + 9 + 9 + 1},
        {"zeros grown", zeros, zeros + zeros, 19},
        {"zeros with a change here and there", zeros, Edited(zeros, 1000, 4), 50 * 15 + 10},
        {"a repeated pattern with changes", repeated, Edited(repeated, 1000, 5),
         100 * 15 + 10 + 9 * 100},
    };
    for (const auto& [change, from, to, largest] : cases) {
        EXPECT_LE(PatchSize(from, to), largest) << change;
    }
}

// Contents of few different bytes have short matches everywhere, so that every choice that the
// maker has comes up.
TEST(Delta, IsRightForManySmallFilesOfFewDifferentBytes) {
    ScratchDir scratch;
    std::mt19937 random(6);
    for (int i = 0; i < 200; ++i) {
        const unsigned letters = 1 + random() % 4;
        std::string texts[] = {std::string(random() % 300, 'a'),
                               std::string(1 + random() % 1000, 'a')};
        for (std::string& text : texts) {
            for (char& letter : text) letter = static_cast<char>('a' + random() % letters);
        }
        ASSERT_LE(PatchSize(texts[0], texts[1]), texts[1].size() + 6);
    }
}

TEST(Delta, KnowsWhatCannotOrShouldNotBe) {
    ScratchDir scratch;
    WriteFile("empty", "");
    const size_t size = PatchSize(SeededBytes(70000, 7), SeededBytes(70000, 7) + "!");
    std::string reason;
    EXPECT_EQ(MakePatch("old", "empty", "other", kNoSizeLimit, &reason), DeltaResult::NONE);
    EXPECT_EQ(MakePatch("old", "new", "other", size - 1, &reason), DeltaResult::NONE);
    EXPECT_EQ(MakePatch("old", "missing", "other", size, &reason), DeltaResult::FAILED);
    EXPECT_FALSE(std::filesystem::exists("other"));
    EXPECT_EQ(MakePatch("old", "new", "other", size, &reason), DeltaResult::MADE);

    EXPECT_TRUE(VerifyPatch("old", "new", "patch", &reason)) << reason;
    EXPECT_FALSE(VerifyPatch("empty", "new", "patch", &reason));
    for (const char* end : {"?", "!!"}) {
        WriteFile("different", SeededBytes(70000, 7) + end);
        EXPECT_FALSE(VerifyPatch("old", "different", "patch", &reason));
    }
}

}  // namespace
