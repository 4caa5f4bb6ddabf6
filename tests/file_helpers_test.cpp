#include "lib/file_helpers.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "lib/checksum.h"
#include "lib/stream.h"
#include "tests/support/scratch_dir.h"

namespace {

namespace fs = std::filesystem;

TEST(FileChecksum, ChainsPiecesOf4096Bytes) {
    ScratchDir scratch;
    const std::string pages = SeededBytes(8192, 1);
    const uint32_t first = Checksum(pages.data(), 4096, kFileChecksumStart);
    const std::pair<std::string, uint32_t> cases[] = {
        {"", 0x03133700},
        {std::string(5000, '\0'), 0x07033f11},
        {pages, Checksum(pages.data() + 4096, 4096, first)},
        // Made to come out as the value that stands for no checksum.
        {"\x7b\xbd\xe2\xbe\x7e\xef\x75\xfc\x35\xa4\xc9\x30", 0xFFFFFFFE},
    };
    for (const auto& [contents, expected] : cases) {
        WriteFile("file", contents);
        EXPECT_EQ(FileChecksum("file", nullptr), expected) << contents.size() << " bytes";
    }
}

TEST(FileHelpers, NeitherReadNorWaitForWhatIsNoFile) {
    ScratchDir scratch;
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    for (const char* path : {"missing", ".", "fifo"}) {
        EXPECT_EQ(FileSize(path), -1) << path;
        EXPECT_EQ(FileChecksum(path, nullptr), kNoChecksum) << path;
        EXPECT_EQ(FileRangeChecksum(path, 0, 10), kNoChecksum) << path;
    }
    for (const char* path : {".", "fifo", "missing/file"}) {
        EXPECT_EQ(OpenForWriting(path), nullptr) << path;
        EXPECT_EQ(OpenForAppending(path), nullptr) << path;
    }
    Stream full = OpenForWriting("/dev/full");
    fputs("new", full.get());
    EXPECT_FALSE(CloseWritten(std::move(full)));
}

TEST(MakePath, MakesTheDirectoriesButNotTheFile) {
    ScratchDir scratch;
    const std::string path = scratch.Path() / "deep" / std::string(150, 'd') / "e//file";
    MakePath(path);
    EXPECT_TRUE(fs::is_directory(fs::path(path).parent_path()));
    EXPECT_FALSE(fs::exists(path));
    WriteFile("file", "kept");
    MakePath("file/below");
    EXPECT_EQ(ReadFile("file"), "kept");
}

}  // namespace
