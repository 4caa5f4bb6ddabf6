// Sizes, checksums and directories of local files.
//
// A read error counts as the end of the file. Files are below 4 GiB. FILE* overloads use pread()
// and ignore the stream's position.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "lib/progress_indicator.h"

// The number of bytes at the end of a file that its tail checksum covers.
constexpr int64_t kTailSize = 1024;

// Hashing reports progress for files from this size on.
constexpr int64_t kSmallestReported = 500000;

// In bytes; -1 when the file cannot be opened for reading.
int64_t FileSize(const std::string& path);

// The whole file's checksum; kNoChecksum when it cannot be opened. `progress` may be null.
uint32_t FileChecksum(const std::string& path, ProgressIndicator* progress);
uint32_t FileChecksum(FILE* file, ProgressIndicator* progress);

// The checksum of `length` bytes from `offset`, chained over pieces of 1024 bytes; kNoChecksum when
// the file cannot be opened.
uint32_t FileRangeChecksum(const std::string& path, int64_t offset, int64_t length);

// The range checksum of the last kTailSize of the file's first `size` bytes, or of all when there
// are fewer.
uint32_t FileTailChecksum(const std::string& path, int64_t size);
uint32_t FileTailChecksum(FILE* file, int64_t size);

// Returns the number of bytes read, fewer than `size` only at the end of the file.
size_t ReadAt(FILE* file, int64_t offset, uint8_t* bytes, size_t size);

// Asks the system to start reading the beginning of the file. Does not wait.
void ReadAhead(FILE* file);

// Creates every directory named before the last slash. Ignores errors; opening the file shows them.
void MakePath(const std::string& path);
