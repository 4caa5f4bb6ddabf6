// Checksums, files, names, the log and the version records.
#include <pty.h>

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

uint32_t Sum(const std::string& text, uint32_t start) {
    return Checksum(text.data(), static_cast<uint32_t>(text.size()), start);
}

TEST_F(Files, HaveTheReferenceChecksums) {
    EXPECT_EQ(Sum("abcdefghijklmnopqrstuvwxyz", 0), 0xfad6d8d7);
    EXPECT_EQ(Sum("abcdefghijk", 0), 0x777f69ab);
    const std::string pages = SeededBytes(8192, 1);
    const std::pair<std::string, uint32_t> files[] = {
        {"", 0x03133700},
        {"hello", 0xbfac5739},
        {std::string(5000, '\0'), 0x07033f11},
        {pages, Sum(pages.substr(4096), Sum(pages.substr(0, 4096), 0x03133700))},
        // Made to come out as the value that stands for no checksum.
        {"\x7b\xbd\xe2\xbe\x7e\xef\x75\xfc\x35\xa4\xc9\x30", 0xFFFFFFFE},
    };
    for (const auto& [contents, expected] : files) {
        WriteFile("file", contents);
        EXPECT_EQ(FileChecksum("file", nullptr), expected) << contents.size() << " bytes";
        const std::string tail = contents.substr(std::max<size_t>(contents.size(), 1024) - 1024);
        EXPECT_EQ(FileTailChecksum("file", static_cast<int64_t>(contents.size())),
                  tail.empty() ? 0xa5be5705 : Sum(tail, 0xa5be5705));
    }
}

TEST_F(Files, AreReadWhenRegular) {
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    for (const char* path : {"missing", ".", "fifo"}) {
        EXPECT_EQ(FileSize(path), -1) << path;
        EXPECT_EQ(FileChecksum(path, nullptr), kNoChecksum) << path;
        EXPECT_EQ(FileTailChecksum(path, 10), kNoChecksum) << path;
        if (path == "missing"s) continue;
        EXPECT_EQ(OpenForWriting(path), nullptr) << path;
        EXPECT_EQ(OpenForAppending(path), nullptr) << path;
    }
}

TEST_F(Files, AreFoundRightTogetherWhereTheyAreAlone) {
    const auto later = std::chrono::steady_clock::now() + std::chrono::hours(1);
    std::vector<ExpectedFile> files = {{"never", 12, 0xFFFFFFFE}};
    WriteFile("never", "\x7b\xbd\xe2\xbe\x7e\xef\x75\xfc\x35\xa4\xc9\x30");
    for (const size_t size : {0, 1, 4095, 4096, 4097, 8192, 9000, 70'000, 499'999}) {
        const std::string contents = SeededBytes(size, 1);
        WriteFile("right", contents);
        for (const std::string& bytes : {contents, contents + 'x'}) {
            const std::string name = std::to_string(files.size());
            WriteFile(name, bytes);
            files.push_back({name, size, FileChecksum("right", nullptr)});
        }
    }
    files[9].checksum ^= 1;
    ASSERT_EQ(CheckTogether(files, later), files.size());
    for (const ExpectedFile& file : files) {
        const auto alone = CheckLocalFile(file.path, file.length, file.checksum, nullptr);
        EXPECT_EQ(file.good, alone.result == CHECK_GOOD) << file.path;
        EXPECT_EQ(file.stamp, StampOf(file.path));
    }
    EXPECT_FALSE(files[0].stamp == files[1].stamp);
    // Time is up at once; eight of the largest fill the room; the next size reports progress.
    EXPECT_EQ(CheckTogether(files, {}), 1u);
    std::vector<ExpectedFile> large(9, {"17", 499'999, 0});
    EXPECT_EQ(CheckTogether(large, later), 8u);
    large[1].length = 500'000;
    EXPECT_EQ(CheckTogether(large, later), 1u);
}

TEST_F(Files, HaveNamesThatStayInTheHome) {
    const std::string longest(4095, 'a');
    for (const std::string& name : {"common/data/file.bin"s, "x/..hidden/a..b/..."s, "x//"s, "x/"s,
                                    "x//etc/passwd"s, ""s, longest}) {
        const bool safe = name.size() > 13 && name != "x//etc/passwd";
        EXPECT_EQ(IsSafeServerName(name), safe) << name;
        EXPECT_TRUE(IsPathInside(name)) << name;
    }
    EXPECT_FALSE(IsSafeServerName("linux64/update.starts"));
    for (const std::string& name : {"/"s, ".."s, "../a"s, "x/.."s, "x/a/../b"s, longest + 'a'}) {
        EXPECT_FALSE(IsSafeServerName(name)) << name;
        EXPECT_FALSE(IsPathInside(name)) << name;
    }
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
    log.Printf("%sy", std::string(65534, 'x').c_str());
    EXPECT_EQ(log.Text(),
              "level -5,first -5,level 0,first 0,second of 2,(null)" + std::string(65534, 'x'));
    for (const char* path : {"a", "missing/b", "a"}) GameLog::AppendToFile(path, "%s,", path);
    EXPECT_EQ(ReadFile("a"), "a,a,");
    int ends[2];
    ASSERT_EQ(openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr), 0);
    setlocale(LC_CTYPE, "C.UTF-8");
    const int before = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    PrintToStdout("\x1b[31m\tb\u009b\u20ac\xff\n");
    fflush(stdout);
    dup2(before, STDOUT_FILENO);
    char shown[64] = "";
    EXPECT_GT(read(ends[0], shown, sizeof shown), 0);
    EXPECT_STREQ(shown, "?[31m\tb?\u20ac?\r\n") << "on a terminal, which adds the carriage return";
    for (const int fd : {before, ends[0], ends[1]}) close(fd);
}

TEST_F(Files, OfVersionsGiveTheRecordOfTheKeyOrADefaultAndAreReplacedWhole) {
    const std::string ends = "9fcdf44f 1.5\n", longest = "9fcdf44f " + std::string(117, 'v') + "\n";
    std::string large;
    while (large.size() < 65536) large += "07871091 " + std::string(22, '3') + "\n";
    const struct {
        std::string file, game, updater, after;
    } cases[] = {
        {"", "", "", ends},
        {"00000000 1.0\n9fcdf44f 1.4", "1.4", "1.0", "00000000 1.0\n" + ends},
        {"9fcdf44f 1.4\n00000000 1.0\n9fcdf44f 1.5\n", "1.4", "1.0", "00000000 1.0\n" + ends},
        {"00000000 1.0\nversion 2, beta\n9fcdf44f 1.4\n", "version 2, beta", "version 2, beta",
         "00000000 1.0\n00000000 version 2, beta\n" + ends},
        {"9FCDF44F 1.4 beta\n", "1.4", "", ends},
        {longest + "07871091 3\n", std::string(117, 'v'), "3", "07871091 3\n" + ends},
        {"00000000 1.0\n\n9fcdf44f 1.4\n", "1.0", "1.0", "00000000 1.0\n" + ends},
        {large, "", std::string(22, '3'), large + ends},
    };
    const uint32_t game = ComponentKey({"linux64", "common"}), updater = 0x07871091;
    EXPECT_EQ(game, 0x9fcdf44f);
    for (const auto& c : cases) {
        fs::remove("halcyrix.lfv");
        if (!c.file.empty()) WriteFile("halcyrix.lfv", c.file);
        // Taken up by nobody: left by an interrupted write, and longer.
        WriteFile("halcyrix.vtm", "9fcdf44f 1.3\n11111111 left by an interrupted write\n");
        EXPECT_EQ(ReadVersionRecord(game), c.game) << c.file;
        EXPECT_EQ(ReadVersionRecord(updater), c.updater) << c.file;
        WriteVersionRecord(game, "1.5");
        EXPECT_EQ(ReadFile("halcyrix.lfv"), c.after) << "from\n" << c.file;
        EXPECT_FALSE(fs::exists("halcyrix.vtm"));
    }
    for (const size_t room : {large.size(), SIZE_MAX}) {
        const FileSizeLimit limit(room);
        WriteVersionRecord(game, "1.6");
        EXPECT_EQ(ReadFile("halcyrix.lfv"), large + ends);
        EXPECT_FALSE(fs::is_regular_file("halcyrix.vtm"));
        fs::create_directory("halcyrix.vtm");
    }
    fs::remove("halcyrix.vtm");
    chmod("halcyrix.lfv", 0);
    WriteVersionRecord(game, "1.6");
    chmod("halcyrix.lfv", 0600);
    EXPECT_EQ(ReadFile("halcyrix.lfv"), large + ends) << "the other records would be lost";
    EXPECT_EQ(log.Count("Can't write halcyrix.vtm: "), 3);
}

}  // namespace
