// Comparing local files with the expected length and checksum.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "lib/checksum.h"
#include "lib/progress_indicator.h"

enum CheckResult : int {
    CHECK_BAD = 0,      // cannot be opened, or has the right length and another checksum
    CHECK_GOOD = 1,     // length and checksum match
    CHECK_DIFFERS = 2,  // has another length
};

struct LocalFileCheck {
    CheckResult result = CHECK_BAD;
    bool opened = false;
    uint32_t length = 0;                  // found, when opened
    uint32_t tailChecksum = kNoChecksum;  // of a file whose length differs
};

// Compares the file with a length and a whole-file checksum. Reads only the tail of a file of
// another length. `progress` may be null.
LocalFileCheck CheckLocalFile(const std::string& path, uint64_t length, uint32_t checksum,
                              ProgressIndicator* progress);

// Differs when a file has changed: its inode, its size, and the times of the last change of its
// contents and of its status.
using FileStamp = std::array<int64_t, 6>;

// Of the file at `path`; all zero when there is none.
FileStamp StampOf(const std::string& path);

// A file with the length and checksum that it should have.
struct ExpectedFile {
    std::string path;
    uint64_t length;
    uint32_t checksum;
    bool good = false;  // CheckTogether() found that length and checksum
    FileStamp stamp{};  // then
};

// Checks the first of the files together: reads them and then hashes several at once. Stops before
// a file that reports progress, before one that cannot be opened, at 4 MiB, or after `until`;
// opening takes at most half of that time. Returns the number of files checked, at least 1.
// CheckLocalFile() says what is wrong with one that is not good.
size_t CheckTogether(std::span<ExpectedFile> files, std::chrono::steady_clock::time_point until);
