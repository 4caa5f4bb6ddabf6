#include "lib/version_records.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/small_disk.h"

namespace {

namespace fs = std::filesystem;

constexpr uint32_t kGame = 0x9fcdf44f;
constexpr uint32_t kUpdater = 0x07871091;

TEST(ReadVersionRecord, FindsTheRecordOfTheKeyOrADefault) {
    const std::string longest(117, 'v');
    const std::tuple<std::string, uint32_t, std::string> cases[] = {
        {"00000000 1.0\n9fcdf44f 1.4\n", kUpdater, "1.0"},
        {"9fcdf44f 1.4\n00000000 1.0\n9fcdf44f 1.5\n", kGame, "1.4"},
        {"00000000 1.0\n00000000 1.1\n", kGame, "1.1"},
        {"version 2, beta", kUpdater, "version 2, beta"},
        {"00000000 1.0\nver2.0\n9fcdf44f 1.4\n", kGame, "ver2.0"},
        {"9FCDF44F 1.4 beta\n", kGame, "1.4"},
        {"9fcdf44f " + longest + "\n07871091 3\n", kGame, longest},
        {"9fcdf44f " + longest + "\n07871091 3\n", kUpdater, "3"},
        {"00000000 1.0\n\n9fcdf44f 1.4\n", kGame, "1.0"},
        {"what is this\n9fcdf44f 1.4\n", kGame, ""}};
    ScratchDir scratch;
    EXPECT_EQ(ReadVersionRecord(kGame), "") << "without a file";
    for (const auto& [file, key, expected] : cases) {
        WriteFile(kVersionRecordFile, file);
        EXPECT_EQ(ReadVersionRecord(key), expected) << key << " in\n" << file;
    }
}

TEST(WriteVersionRecord, ReplacesTheRecordAndKeepsTheOthers) {
    const std::pair<std::string, std::string> cases[] = {
        {"ver2.0", "00000000 ver2.0\n9fcdf44f 1.5\n"},
        {"07871091 3\n9fcdf44f 1.4\n00000000 1.0\n", "07871091 3\n00000000 1.0\n9fcdf44f 1.5\n"},
        {"9fcdf44f 1.4\n9FCDF44F 1.3\n", "9fcdf44f 1.5\n"},
        {"07871091 3\nwhat\n00000000 1.0\n", "07871091 3\n9fcdf44f 1.5\n"},
        {"7\n07871091 3\n77\n", "07871091 3\n77\n9fcdf44f 1.5\n"},
    };
    ScratchDir scratch;
    for (const auto& [before, after] : cases) {
        WriteFile(kVersionRecordFile, before);
        WriteFile(kVersionRecordTemporary, "left by an interrupted write, and longer");
        WriteVersionRecord(kGame, "1.5");
        EXPECT_EQ(ReadFile(kVersionRecordFile), after) << "from\n" << before;
        EXPECT_FALSE(fs::exists(kVersionRecordTemporary));
    }
}

TEST(WriteVersionRecord, KeepsTheOldFileWhenTheNewOneCannotBeMade) {
    ScratchDir scratch;
    const SmallDisk disk("disk");
    std::string records;  // of 32 bytes each
    while (records.size() < SmallDisk::kSize) records += "07871091 " + std::string(22, '3') + "\n";
    ASSERT_EQ(mkfifo(kVersionRecordTemporary, 0600), 0);
    for (const char* place : {".", "disk"}) {
        RecordingLog log;
        fs::current_path(place);
        WriteFile(kVersionRecordFile, records);
        WriteVersionRecord(kGame, "1.5");
        EXPECT_EQ(ReadFile(kVersionRecordFile), records);
        EXPECT_TRUE(log.Has("Can't write halcyrix.vtm: ")) << log.Text();
        EXPECT_FALSE(fs::exists(kVersionRecordTemporary));
    }
    fs::current_path(scratch.Path());
}

}  // namespace
