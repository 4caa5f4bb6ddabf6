#include "lib/version_records.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <optional>

#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/small_disk.h"

namespace {

using namespace std::literals;
namespace fs = std::filesystem;

constexpr uint32_t kGame = 0x9fcdf44f;
constexpr uint32_t kUpdater = 0x07871091;

TEST(ComponentKey, DependsOnNamesAndOrder) {
    EXPECT_EQ(ComponentKey({"linux64"}), 0x72336a6cu);
    EXPECT_EQ(ComponentKey({"linux64", "common"}), kGame);
    EXPECT_EQ(ComponentKey({"linux64upd"}), kUpdater);
    EXPECT_NE(ComponentKey({"common", "linux64"}), kGame);
}

TEST(ReadVersionRecord, FindsTheRecordOfTheKeyOrADefault) {
    const std::string longest(117, 'v');
    const struct {
        std::string file;
        uint32_t key;
        std::string expected;
    } cases[] = {
        {"", kGame, ""},
        {"00000000 1.0\n9fcdf44f 1.4\n", kGame, "1.4"},
        {"00000000 1.0\n9fcdf44f 1.4\n", kUpdater, "1.0"},
        {"9fcdf44f 1.4\n00000000 1.0\n9fcdf44f 1.5\n", kGame, "1.4"},
        {"00000000 1.0\n00000000 1.1\n", kGame, "1.1"},
        {"00000000 1.0\n00000000 1.1\n", 0, "1.0"},
        {"ver2.0\n", kGame, "ver2.0"},
        {"version 2, beta", kUpdater, "version 2, beta"},
        {"00000000 1.0\nver2.0\n9fcdf44f 1.4\n", kGame, "ver2.0"},
        {"9fcdf44f 1.4\nver2.0\n", kGame, "1.4"},
        {"9FCDF44F 1.4 beta\n", kGame, "1.4"},
        {"9fcdf44f " + longest + "\n07871091 3\n", kGame, longest},
        {"9fcdf44f " + longest + "\n07871091 3\n", kUpdater, "3"},
        {"00000000 1.0\n\n9fcdf44f 1.4\n", kGame, "1.0"},
        {"what is this\n9fcdf44f 1.4\n", kGame, ""},
        {"07871091\n9fcdf44f 1.4\n", kGame, ""},
    };
    ScratchDir scratch;
    EXPECT_EQ(ReadVersionRecord(kGame), "") << "without a file";
    for (const auto& c : cases) {
        WriteFile(kVersionRecordFile, c.file);
        EXPECT_EQ(ReadVersionRecord(c.key), c.expected) << c.key << " in\n" << c.file;
    }
}

TEST(WriteVersionRecord, ReplacesTheRecordAndKeepsTheOthers) {
    const struct {
        std::optional<std::string> before;
        std::string after;
    } cases[] = {
        {std::nullopt, "9fcdf44f 1.5\n"},
        {"ver2.0\n", "00000000 ver2.0\n9fcdf44f 1.5\n"},
        {"ver2.0", "00000000 ver2.0\n9fcdf44f 1.5\n"},
        {"07871091 3\n9fcdf44f 1.4\n00000000 1.0\n", "07871091 3\n00000000 1.0\n9fcdf44f 1.5\n"},
        {"9fcdf44f 1.4\n9FCDF44F 1.3\n", "9fcdf44f 1.5\n"},
        {"07871091 3\n\n00000000 1.0\n", "07871091 3\n9fcdf44f 1.5\n"},
        {"07871091 3\nwhat\n00000000 1.0\n", "07871091 3\n9fcdf44f 1.5\n"},
        {"7\n07871091 3\n77\n", "07871091 3\n77\n9fcdf44f 1.5\n"},
    };
    for (const auto& c : cases) {
        ScratchDir scratch;
        RecordingLog log;
        if (c.before) WriteFile(kVersionRecordFile, *c.before);
        WriteFile(kVersionRecordTemporary, "left by an interrupted write, and longer");
        WriteVersionRecord(kGame, "1.5");
        EXPECT_EQ(ReadFile(kVersionRecordFile), c.after) << "from\n" << c.before.value_or("none");
        EXPECT_FALSE(fs::exists(kVersionRecordTemporary));
        EXPECT_EQ(log.Text(), "");
    }
}

void ExpectUnchangedAndLogged(const std::string& records) {
    RecordingLog log;
    WriteFile(kVersionRecordFile, records);
    ASSERT_EQ(ReadFile(kVersionRecordFile), records);
    WriteVersionRecord(kGame, "1.5");
    EXPECT_EQ(ReadFile(kVersionRecordFile), records);
    EXPECT_TRUE(log.Has("Can't write halcyrix.vtm: ")) << log.Text();
}

TEST(WriteVersionRecord, KeepsTheOldFileWhenTheNewOneCannotBeMade) {
    ScratchDir scratch;
    fs::create_directory(kVersionRecordTemporary);
    ExpectUnchangedAndLogged("9fcdf44f 1.4\n");
    fs::remove(kVersionRecordTemporary);
    mkfifo(kVersionRecordTemporary, 0600);
    ExpectUnchangedAndLogged("9fcdf44f 1.4\n");
}

TEST(WriteVersionRecord, KeepsTheOldFileOnAFullDisk) {
    ScratchDir scratch;
    SmallDisk disk("disk");
    fs::current_path("disk");
    std::string records;  // of 32 bytes each
    while (records.size() < SmallDisk::kSize) records += "07871091 " + std::string(22, '3') + "\n";
    ExpectUnchangedAndLogged(records);
    EXPECT_FALSE(fs::exists(kVersionRecordTemporary));
    fs::current_path(scratch.Path());
}

}  // namespace
