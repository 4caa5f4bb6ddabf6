// The comparison of a local file with what it ought to be.
#ifndef HALCYRIX_LIB_LOCAL_FILE_CHECK_H
#define HALCYRIX_LIB_LOCAL_FILE_CHECK_H

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

// Compares the file at `path` with a length and a whole-file checksum. Of a file of another length
// only the tail is read. `progress` may be null.
LocalFileCheck CheckLocalFile(const std::string& path, uint64_t length, uint32_t checksum,
                              ProgressIndicator* progress);

// What a file ought to be.
struct ExpectedFile {
    std::string path;
    uint64_t length;
    uint32_t checksum;
    bool good = false;  // whether CheckTogether() found it to be that
};

// Checks the first ones of the files together: they are read whole, one after the other, and hashed
// at once. Ends before a file that progress is told of, when 4 MiB have been read, and after the
// first file that is read at `until` or later. Returns how many files it has done with, at least 1.
// What is wrong with those that are not good is for CheckLocalFile() to find out.
size_t CheckTogether(std::span<ExpectedFile> files, std::chrono::steady_clock::time_point until);

#endif
