// Checksums, files, names, the log and the version records.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "lib/checksum.h"
#include "lib/file_helpers.h"
#include "lib/local_file_check.h"
#include "lib/server_name.h"
#include "lib/stream.h"
#include "lib/version_records.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"

namespace {

namespace fs = std::filesystem;
using std::string_literals::operator""s;

class Files : public testing::Test {
    ScratchDir scratch;

protected:
    RecordingLog log;
};

TEST_F(Files, HaveTheReferenceChecksums) {
    const std::string pages = SeededBytes(8192, 1);
    const uint32_t first = Checksum(pages.data(), 4096, 0x03133700);
    EXPECT_EQ(Checksum("abcdefghijklmnopqrstuvwxyz", 26, 0), 0xfad6d8d7);
    EXPECT_EQ(Checksum("abcdefghijk", 11, 0), 0x777f69ab);
    const std::pair<std::string, uint32_t> files[] = {
        {"", 0x03133700},
        {"hello", 0xbfac5739},
        {std::string(5000, '\0'), 0x07033f11},
        {pages, Checksum(pages.data() + 4096, 4096, first)},
        // Made to come out as the value that stands for no checksum.
        {"\x7b\xbd\xe2\xbe\x7e\xef\x75\xfc\x35\xa4\xc9\x30", 0xFFFFFFFE},
    };
    for (const auto& [contents, expected] : files) {
        WriteFile("file", contents);
        const auto size = static_cast<int64_t>(contents.size());
        EXPECT_EQ(FileChecksum("file", nullptr), expected) << size << " bytes";
        const std::string tail = contents.substr(std::max<size_t>(contents.size(), 1024) - 1024);
        const uint32_t sum = Checksum(tail.data(), static_cast<uint32_t>(tail.size()), 0xa5be5705);
        EXPECT_EQ(FileTailChecksum("file", size), tail.empty() ? 0xa5be5705 : sum);
    }
}

TEST_F(Files, OfHalfAMegabyteTellHowFarTheirChecksumIs) {
    RecordingProgress progress;
    for (const size_t size : {499999, 500000}) {
        EXPECT_TRUE(progress.progress.empty());
        WriteFile("file", std::string(size, 'x'));
        FileChecksum("file", &progress);
    }
    ASSERT_EQ(progress.progress.size(), 123u);
    EXPECT_EQ(progress.progress.front(), std::pair(4096, 500000));
    EXPECT_EQ(progress.progress.back(), std::pair(500000, 500000));
}

TEST_F(Files, AreNeitherReadNorAwaitedWhereThereAreNone) {
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    for (const char* path : {"missing", ".", "fifo"}) {
        EXPECT_EQ(FileSize(path), -1) << path;
        EXPECT_EQ(FileChecksum(path, nullptr), kNoChecksum) << path;
        EXPECT_EQ(FileTailChecksum(path, 10), kNoChecksum) << path;
    }
    for (const char* path : {".", "fifo", "missing/file"}) {
        EXPECT_EQ(OpenForWriting(path), nullptr) << path;
        EXPECT_EQ(OpenForAppending(path), nullptr) << path;
    }
    Stream full = OpenForWriting("/dev/full");
    fputs("new", full.get());
    EXPECT_FALSE(CloseWritten(std::move(full)));
}

TEST_F(Files, AreReadWhereTheyGrewAfterTheirEnd) {
    WriteFile("file", "old");
    const Stream stream = OpenForReading("file");
    EXPECT_EQ(fgetc((MoveTo(stream.get(), 3), stream.get())), EOF);
    Stream appending = OpenForAppending("file");
    fputs(" new", appending.get());
    ASSERT_TRUE(CloseWritten(std::move(appending)));
    EXPECT_EQ(fgetc((MoveTo(stream.get(), 3), stream.get())), ' ');
}

TEST_F(Files, AreFoundRightTogetherWhereTheyAreAlone) {
    const auto later = std::chrono::steady_clock::now() + std::chrono::hours(1);
    std::vector<ExpectedFile> files = {{"never", 12, 0xFFFFFFFE}, {"fifo", 9, 9}};
    WriteFile("never", "\x7b\xbd\xe2\xbe\x7e\xef\x75\xfc\x35\xa4\xc9\x30");
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    for (const char* damage : {"none", "missing", "longer", "shorter", "other bytes"}) {
        for (const size_t size : {0, 1, 11, 12, 13, 4095, 4096, 4097, 8192, 70'000, 499'999}) {
            const std::string name = damage + std::to_string(size);
            std::string contents = SeededBytes(size, static_cast<unsigned>(files.size()));
            WriteFile(name, contents);
            files.push_back({name, size, FileChecksum(name, nullptr)});
            if (damage[0] == 'l') contents += 'x';
            if (size > 0 && damage[0] == 's') contents.pop_back();
            if (size > 0 && damage[0] == 'o') contents[size / 2] ^= 1;
            WriteFile(name, contents);
            if (damage[0] == 'm') fs::remove(name);
        }
    }
    for (const size_t count : {1, 2, 8, 13, 57}) {
        ASSERT_EQ(CheckTogether(std::span(files).first(count), later), count);
        for (auto file = files.begin(); file != files.begin() + count; ++file) {
            const auto alone = CheckLocalFile(file->path, file->length, file->checksum, nullptr);
            EXPECT_EQ(file->good, alone.result == CHECK_GOOD) << file->path;
            file->good = false;
        }
    }
    // Time is up at once; eight of the largest fill the room; of the next size progress is told.
    EXPECT_EQ(CheckTogether(files, {}), 1u);
    std::vector<ExpectedFile> large(9, {"none499999", 499'999, 0});
    EXPECT_EQ(CheckTogether(large, later), 8u);
    large[1].length = 500'000;
    EXPECT_EQ(CheckTogether(large, later), 1u);
}

TEST_F(Files, GetTheDirectoriesOfTheirPath) {
    MakePath(fs::current_path() / "deep/d/e//new");
    EXPECT_TRUE(fs::is_directory("deep/d/e"));
    EXPECT_FALSE(fs::exists("deep/d/e/new"));
    WriteFile("file", "kept");
    MakePath("file/below");
    EXPECT_EQ(ReadFile("file"), "kept");
}

TEST_F(Files, HaveNamesThatStayInTheHome) {
    const std::string longest(4095, 'a');
    for (const std::string& name : {"common/data/file.bin"s, "plain"s, "x/..hidden/a..b/..."s,
                                    "x/./a//b"s, "x//"s, longest}) {
        EXPECT_EQ(IsSafeServerName(name), name != "x//") << name;
        EXPECT_TRUE(IsPathInside(name)) << name;
    }
    for (const std::string& name : {"/"s, "/etc/passwd"s, ".."s, "../a"s, "x/.."s, "x/../a"s,
                                    "x/a/../b"s, "x/a/.."s, longest + 'a'}) {
        EXPECT_FALSE(IsSafeServerName(name)) << name;
        EXPECT_FALSE(IsPathInside(name)) << name;
    }
    for (const char* name : {"", "x/", "x//etc/passwd"}) EXPECT_FALSE(IsSafeServerName(name));
}

TEST_F(Files, OfTheLogHoldWhatItsLevelAdmitsByFormatOrByNumber) {
    const char* const table[] = {"first %d,", "second %s %d,"};
    GameLog::SetMessages(table, 2);
    for (const int32_t level : {-5, 0, 1}) {
        log.Printf(level, "level %d,", level);
        log.PrintMsg(level, 0u, level);
    }
    log.PrintMsg(1u, "of", 2);
    log.PrintMsg(2u, 42);
    const std::string longest(65534, 'x');
    log.Printf("%sy", longest.c_str());
    EXPECT_EQ(log.Text(), "level -5,first -5,level 0,first 0,second of 2,(null)" + longest);
    testing::internal::CaptureStdout();
    GameLog().Printf("%s", "text\n");
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::MatchesRegex("\\[.+\\] text\n"));
    for (const char* path : {"log.txt", "missing/log.txt", "log.txt"}) {
        GameLog::AppendToFile(path, "%s,", path);
    }
    EXPECT_EQ(ReadFile("log.txt"), "log.txt,log.txt,");
}

constexpr uint32_t kGame = 0x9fcdf44f, kUpdater = 0x07871091;

TEST_F(Files, OfVersionsGiveTheRecordOfTheKeyOrADefault) {
    EXPECT_EQ(ComponentKey({"linux64", "common"}), kGame);
    EXPECT_EQ(ComponentKey({"linux64upd"}), kUpdater);
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
    EXPECT_EQ(ReadVersionRecord(kGame), "") << "without a file";
    for (const auto& [file, key, expected] : cases) {
        WriteFile("halcyrix.lfv", file);
        EXPECT_EQ(ReadVersionRecord(key), expected) << key << " in\n" << file;
    }
}

TEST_F(Files, OfVersionsAreReplacedWholeOrNotAtAll) {
    std::string large;
    while (large.size() < 65536) large += "07871091 " + std::string(22, '3') + "\n";
    const std::pair<std::string, std::string> cases[] = {
        {"", "9fcdf44f 1.5\n"},
        {"ver2.0", "00000000 ver2.0\n9fcdf44f 1.5\n"},
        {"07871091 3\n9fcdf44f 1.4\n00000000 1.0\n", "07871091 3\n00000000 1.0\n9fcdf44f 1.5\n"},
        {"9fcdf44f 1.4\n9FCDF44F 1.3\n", "9fcdf44f 1.5\n"},
        {"07871091 3\nwhat\n00000000 1.0\n", "07871091 3\n9fcdf44f 1.5\n"},
        {"7\n07871091 3\n77\n", "07871091 3\n77\n9fcdf44f 1.5\n"},
        {large, large + "9fcdf44f 1.5\n"},
    };
    for (const auto& [before, after] : cases) {
        // Taken up by nobody: left by an interrupted write, and longer.
        WriteFile("halcyrix.vtm", "9fcdf44f 1.3\n11111111 left by an interrupted write\n");
        before.empty() ? void(fs::remove("halcyrix.lfv")) : WriteFile("halcyrix.lfv", before);
        WriteVersionRecord(kGame, "1.5");
        EXPECT_EQ(ReadFile("halcyrix.lfv"), after) << "from\n" << before;
        EXPECT_FALSE(fs::exists("halcyrix.vtm"));
    }
    for (const size_t room : {large.size(), SIZE_MAX}) {
        const FileSizeLimit limit(room);
        WriteVersionRecord(kGame, "1.6");
        EXPECT_EQ(ReadFile("halcyrix.lfv"), cases[6].second);
        EXPECT_FALSE(fs::is_regular_file("halcyrix.vtm"));
        fs::create_directory("halcyrix.vtm");
    }
    EXPECT_EQ(log.Count("Can't write halcyrix.vtm: "), 2);
}

}  // namespace
