#include "lib/file_helpers.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>

#include "lib/checksum.h"
#include "lib/local_file_check.h"
#include "lib/stream.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"

namespace {

using namespace std::literals;
namespace fs = std::filesystem;
using testing::Pair;

uint32_t Chain(std::initializer_list<std::string> pieces, uint32_t value) {
    for (const std::string& piece : pieces) {
        value = Checksum(piece.data(), static_cast<uint32_t>(piece.size()), value);
    }
    return value;
}

TEST(FileChecksum, ChainsPiecesOf4096Bytes) {
    ScratchDir scratch;
    const std::string pages = SeededBytes(8192, 1);
    const struct {
        std::string contents;
        uint32_t expected;
    } cases[] = {
        {"", 0x03133700},
        {"abc", 0xb66e2858},
        {std::string(5000, '\0'), 0x07033f11},
        {pages, Chain({pages.substr(0, 4096), pages.substr(4096)}, kFileChecksumStart)},
        // Made to come out as the value that stands for no checksum.
        {"\x7b\xbd\xe2\xbe\x7e\xef\x75\xfc\x35\xa4\xc9\x30", 0xFFFFFFFE},
    };
    for (const auto& c : cases) {
        WriteFile("file", c.contents);
        EXPECT_EQ(FileChecksum("file", nullptr), c.expected) << c.contents.size() << " bytes";
        EXPECT_EQ(FileSize("file"), static_cast<int64_t>(c.contents.size()));
    }
}

TEST(FileChecksum, ReportsProgressOfLargeFiles) {
    ScratchDir scratch;
    RecordingProgress progress;
    WriteFile("file", std::string(499999, 'x'));
    FileChecksum("file", &progress);
    EXPECT_TRUE(progress.progress.empty());
    WriteFile("file", std::string(500000, 'x'));
    FileChecksum("file", &progress);
    ASSERT_EQ(progress.progress.size(), 123u);
    EXPECT_THAT(progress.progress[0], Pair(4096, 500000));
    EXPECT_THAT(progress.progress[121], Pair(122 * 4096, 500000));
    EXPECT_THAT(progress.progress[122], Pair(500000, 500000));
}

TEST(FileRangeChecksum, CoversTheRangeAsFarAsTheFileGoes) {
    ScratchDir scratch;
    const std::string bytes = SeededBytes(3000, 2);
    const std::string reserved = "\x7b\xbd\xe2\xbe\x7e\xef\x75\xfc\x30\x84\x1e\x8e";
    WriteFile("file", bytes + reserved);
    const struct {
        int64_t offset;
        int64_t length;
        uint32_t expected;
    } cases[] = {
        {0, 0, kRangeChecksumStart},
        {5, -1, kRangeChecksumStart},
        {4000, 10, kRangeChecksumStart},
        {1976, 1024, Chain({bytes.substr(1976)}, kRangeChecksumStart)},
        {3001, 1024, Chain({reserved.substr(1)}, kRangeChecksumStart)},
        {10, 1500, Chain({bytes.substr(10, 1024), bytes.substr(1034, 476)}, kRangeChecksumStart)},
        {3000, 12, 0xFFFFFFFE},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(FileRangeChecksum("file", c.offset, c.length), c.expected)
            << c.length << " bytes from " << c.offset;
    }
}

TEST(CheckLocalFile, TellsMissingGoodAndDifferentFilesApart) {
    ScratchDir scratch;
    const std::string bytes = SeededBytes(3000, 3);
    WriteFile("file", bytes);
    WriteFile("short", "abc");
    const uint32_t whole = FileChecksum("file", nullptr);
    const uint32_t tail = Chain({bytes.substr(1976)}, kRangeChecksumStart);
    const uint32_t shortTail = Chain({"abc"}, kRangeChecksumStart);
    const struct {
        const char* path;
        uint64_t length;
        uint32_t checksum;
        LocalFileCheck expected;
    } cases[] = {
        {"missing", 0, 0, {CHECK_BAD, false, 0, kNoChecksum}},
        {"file", 3000, whole, {CHECK_GOOD, true, 3000, kNoChecksum}},
        {"file", 3000, whole + 1, {CHECK_BAD, true, 3000, kNoChecksum}},
        {"file", 5000, whole, {CHECK_DIFFERS, true, 3000, tail}},
        {"short", 2, 0, {CHECK_DIFFERS, true, 3, shortTail}},
    };
    for (const auto& c : cases) {
        const LocalFileCheck found = CheckLocalFile(c.path, c.length, c.checksum, nullptr);
        SCOPED_TRACE(c.path + " of "s + std::to_string(c.length));
        EXPECT_EQ(found.result, c.expected.result);
        EXPECT_EQ(found.opened, c.expected.opened);
        EXPECT_EQ(found.length, c.expected.length);
        EXPECT_EQ(found.tailChecksum, c.expected.tailChecksum);
    }
}

TEST(FileHelpers, NeitherReadNorWaitForWhatIsNoFile) {
    ScratchDir scratch;
    fs::create_directory("directory");
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    for (const char* path : {"missing", "directory", "fifo"}) {
        EXPECT_EQ(FileSize(path), -1) << path;
        EXPECT_EQ(FileChecksum(path, nullptr), kNoChecksum) << path;
        EXPECT_EQ(FileRangeChecksum(path, 0, 10), kNoChecksum) << path;
        EXPECT_EQ(CheckLocalFile(path, 0, 0, nullptr).result, CHECK_BAD) << path;
    }
    for (const char* path : {"directory", "fifo", "missing/file"}) {
        EXPECT_EQ(OpenForWriting(path), nullptr) << path;
        EXPECT_EQ(OpenForAppending(path), nullptr) << path;
    }
}

TEST(Streams, TellWhetherEverythingWasWritten) {
    ScratchDir scratch;
    for (const bool append : {false, true}) {
        WriteFile("file", "old,");
        Stream stream = append ? OpenForAppending("file") : OpenForWriting("file");
        fputs("new", stream.get());
        EXPECT_TRUE(CloseWritten(std::move(stream)));
        EXPECT_EQ(ReadFile("file"), append ? "old,new" : "new");

        Stream full = append ? OpenForAppending("/dev/full") : OpenForWriting("/dev/full");
        fputs("new", full.get());
        EXPECT_FALSE(CloseWritten(std::move(full)));
    }
}

TEST(MakePath, MakesTheDirectoriesButNotTheFile) {
    ScratchDir scratch;
    const std::string deep = "deep/" + std::string(150, 'd') + "/" + std::string(150, 'e');
    const std::string absolute = (scratch.Path() / "from/root").string();
    for (const std::string& path : {"a/b/c"s, "twice//over"s, "plain"s, deep + "/file", absolute}) {
        MakePath(path);
        EXPECT_FALSE(fs::exists(path)) << path;
        EXPECT_EQ(fs::is_directory(fs::path(path).parent_path()), path != "plain") << path;
    }
    WriteFile("a/file", "kept");
    MakePath("a/file/below");
    EXPECT_EQ(ReadFile("a/file"), "kept");
}

}  // namespace
