#include "delta/delta.h"

#include "tests/support/scratch_dir.h"

namespace {

// Makes and checks the patch in a process that gets no more memory than promised, beside the mapped
// old file. Eight threads must make the same patch. Returns its size.
size_t PatchSize(const std::string& from, const std::string& to) {
    WriteFile("old", from);
    WriteFile("new", to);
    const pid_t child = fork();
    if (child == 0) {
#ifndef __SANITIZE_ADDRESS__  // it keeps what is freed
        rlim_t size, resident;
        std::ifstream("/proc/self/statm") >> size >> resident;
        const rlim_t limit = resident * 4096 + PatchMemory(from.size(), to.size()) - from.size();
        const rlimit memory{limit, limit};
        setrlimit(RLIMIT_DATA, &memory);
#endif
        std::string why;
        _exit(MakePatch("old", "new", "patch", {}, &why) != DeltaResult::MADE ||
              !VerifyPatch("old", "new", "patch", &why));
    }
    int status;
    EXPECT_TRUE(waitpid(child, &status, 0) == child && status == 0);
    const std::string patch = ReadFile("patch");
    std::string why;
    EXPECT_EQ(MakePatch("old", "new", "patch", {.threads = 8}, &why), DeltaResult::MADE);
    EXPECT_TRUE(ReadFile("patch") == patch);
    return patch.size();
}

// The bounds are what a patch by hand takes: 9 bytes for a copy, 5 and the data for a literal, 1 in
// the end.
TEST(Delta, MakesAPatchOfTheExpectedSizeForEveryChange) {
    ScratchDir scratch;
    const std::string noise = SeededBytes(100000, 1), other = SeededBytes(100000, 2);
    const std::string zeros(20000, '\0'), some = other.substr(0, 100);
    const std::string large = SeededBytes(1200001, 8);  // indexed in two parts, or only near gaps
    const auto part = [&](size_t at, size_t size = SIZE_MAX) { return large.substr(at, size); };
    std::string records, sorted, spans, repeated;
    for (size_t i = 0; i < 12000; i += 12) {
        sorted += noise.substr(i, 12);
        records += noise.substr(i * 7 % 12000, 12);
    }
    for (size_t i = 0; i < 170000; ++i) spans += noise.substr(i % 90000, 15) + noise[i % 7];
    for (size_t i = 0; i < 9000; ++i) repeated += noise.substr(i * i % 5 * 999, 200 + i * i % 5);
    const std::tuple<const char*, std::string, std::string, size_t> cases[] = {
        {"nothing", noise, noise, 10},
        {"from an empty file", "", noise, noise.size() + 6},
        {"a gap that a copy covers for less", noise,
         noise.substr(0, 500) + noise.substr(9001, 8) + noise.substr(700), 9 + 9 + 9 + 1},
        {"a copy that only seems to pay", noise + "ABCDEFGH" + other.substr(0, 12),
         other.substr(0, 12) + noise.substr(100), 5 + 12 + 9 + 1},
        {"moved across the parts of the index", large, other + part(1100000) + part(1, 1099999),
         5 + other.size() + 9 + 9 + 1},
        {"something from far away in the end", large,
         part(0, 900000) + other.substr(0, 999) + part(900003, 18) + some, 9 + 1004 + 9 + 105 + 1},
        {"what follows a change stands in two places", large + some + part(300000, 100),
         part(0, 200000) + some + part(300000), 9 + 9 + 9 + 1},
        {"what precedes a change stands in two places", large + part(300000, 5000) + other,
         part(0, 305000) + other, 9 + 9 + 1},
        {"something from nearby", large, part(0, 300000) + part(300300, 8) + part(300100), 28},
        {"zeros, fewer at first", "\1" + zeros.substr(99) + large + zeros + large,
         "\1" + zeros.substr(999) + large + zeros.substr(9) + large, 9 + 9 + 9 + 1},
        {"records in another order", sorted, records, 1000 * 9 + 1},
        {"twenty bytes taken from repeated ones", repeated,
         repeated.substr(0, 500000) + repeated.substr(500020), 9 + 9 + 1},
        {"a copy over a seam, into another one", noise + noise.substr(5104, 6) + some,
         part(0, 1048476) + noise.substr(5000, 110) + some, 5 + 1048476 + 9 + 9 + 1},
        {"as many commands as bytes allow", noise, spans, 170000 * 15},
    };
    for (const auto& [change, from, to, largest] : cases) {
        EXPECT_LE(PatchSize(from, to), largest) << change;
    }
}

TEST(Delta, KnowsWhatCannotOrShouldNotBe) {
    ScratchDir scratch;
    std::string why, old = SeededBytes(70000, 7);
    const size_t size = PatchSize(old, old + "!");
    WriteFile("empty", "");
    WriteFile("longer", old + "!?");
    WriteFile("huge", "");
    std::filesystem::resize_file("huge", uint64_t{1} << 32);
    for (const auto& [from, to] : {std::pair{"huge", "new"}, {"old", "huge"}}) {
        EXPECT_EQ(MakePatch(from, to, "other", {}, &why), DeltaResult::NONE);
        EXPECT_EQ(why, "huge: too large for a patch");
    }
    EXPECT_EQ(MakePatch("old", "empty", "other", {}, &why), DeltaResult::NONE);
    EXPECT_EQ(MakePatch("old", "new", "other", {size - 1}, &why), DeltaResult::NONE);
    EXPECT_EQ(MakePatch("old", "missing", "other", {size}, &why), DeltaResult::FAILED);
    {
        const FileSizeLimit limit(9);
        EXPECT_EQ(MakePatch("old", "new", "other", {}, &why), DeltaResult::FAILED);
    }
    EXPECT_FALSE(std::filesystem::exists("other"));
    EXPECT_EQ(MakePatch("old", "new", "other", {size}, &why), DeltaResult::MADE) << why;

    old[69999] ^= 1;
    WriteFile("damaged", old);
    for (const auto& [from, to] :
         {std::pair{"damaged", "new"}, {"old", "longer"}, {"empty", "new"}}) {
        EXPECT_FALSE(VerifyPatch(from, to, "patch", &why)) << from;
    }
}

}  // namespace
