#include "lib/file_helpers.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

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
    EXPECT_THAT(progress.progress[121], Pair(122 * 4096, 500000));
    EXPECT_THAT(progress.progress[122], Pair(500000, 500000));
}

TEST(FileRangeChecksum, CoversTheRangeAsFarAsTheFileGoes) {
    ScratchDir scratch;
    const std::string bytes = SeededBytes(3000, 2);
    WriteFile("file", bytes);
    EXPECT_EQ(FileRangeChecksum("file", 0, 0), 0xa5be5705);
    EXPECT_EQ(FileRangeChecksum("file", 4000, 10), 0xa5be5705);
    for (const int64_t length : {1024, 1025}) {
        EXPECT_EQ(FileRangeChecksum("file", 1976, length), Chain({bytes.substr(1976)}, 0xa5be5705));
    }
    EXPECT_EQ(FileRangeChecksum("file", 10, 1500),
              Chain({bytes.substr(10, 1024), bytes.substr(1034, 476)}, 0xa5be5705));
    WriteFile("reserved", "\x7b\xbd\xe2\xbe\x7e\xef\x75\xfc\x30\x84\x1e\x8e");
    EXPECT_EQ(FileRangeChecksum("reserved", 0, 12), 0xFFFFFFFE);
}

TEST(CheckLocalFile, TellsMissingGoodAndDifferentFilesApart) {
    ScratchDir scratch;
    const std::string bytes = SeededBytes(3000, 3);
    WriteFile("file", bytes);
    WriteFile("short", "abc");
    const uint32_t whole = FileChecksum("file", nullptr);
    EXPECT_EQ(CheckLocalFile("missing", 0, 0, nullptr).result, CHECK_BAD);
    EXPECT_EQ(CheckLocalFile("file", 3000, whole, nullptr).result, CHECK_GOOD);
    const LocalFileCheck bad = CheckLocalFile("file", 3000, whole + 1, nullptr);
    EXPECT_EQ(bad.result, CHECK_BAD);
    EXPECT_EQ(bad.length, 3000u);
    EXPECT_EQ(bad.tailChecksum, kNoChecksum);
    const LocalFileCheck partial = CheckLocalFile("file", 5000, whole, nullptr);
    EXPECT_EQ(partial.result, CHECK_DIFFERS);
    EXPECT_EQ(partial.length, 3000u);
    EXPECT_EQ(partial.tailChecksum, Chain({bytes.substr(1976)}, kRangeChecksumStart));
    EXPECT_EQ(CheckLocalFile("short", 2, 0, nullptr).tailChecksum,
              Chain({"abc"}, kRangeChecksumStart));
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
    Stream full = OpenForWriting("/dev/full");
    fputs("new", full.get());
    EXPECT_FALSE(CloseWritten(std::move(full)));
}

TEST(MakePath, MakesTheDirectoriesButNotTheFile) {
    ScratchDir scratch;
    const std::string deep = "deep/" + std::string(150, 'd') + "/" + std::string(150, 'e');
    const std::string absolute = scratch.Path().string() + "/from/root";
    for (const auto& path : {"a/b/c"s, "twice//over"s, "plain"s, deep + "/file", absolute}) {
        MakePath(path);
        EXPECT_FALSE(fs::exists(path)) << path;
        EXPECT_EQ(fs::is_directory(fs::path(path).parent_path()), path != "plain") << path;
    }
    WriteFile("a/file", "kept");
    MakePath("a/file/below");
    EXPECT_EQ(ReadFile("a/file"), "kept");
}

}  // namespace
