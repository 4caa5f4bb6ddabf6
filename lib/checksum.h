// The one 32-bit checksum of the system: file contents, resume tails and version record keys.
#pragma once

#include <cstdint>
#include <span>

// Replaces the hash's golden ratio.
constexpr uint32_t kChecksumSeed = 0xa5be5705;

// Initial values of the three uses.
constexpr uint32_t kFileChecksumStart = 0x03133700;
constexpr uint32_t kRangeChecksumStart = kChecksumSeed;
constexpr uint32_t kComponentKeyStart = 0xacce55ed;

// Means "no checksum". No file has it.
constexpr uint32_t kNoChecksum = 0xFFFFFFFF;

// Bob Jenkins' lookup2 hash ("Hash Functions", Dr. Dobb's Journal, September 1997) with
// kChecksumSeed for its golden ratio.
//
// Pieces are chained: each result is the initial value of the next. The final result depends on
// where the pieces are cut.
uint32_t Checksum(const void* data, uint32_t length, uint32_t initial);

// Whole files are hashed in pieces of this many bytes. Their result is never kNoChecksum.
constexpr uint32_t kFilePiece = 4096;
constexpr uint32_t RealChecksum(uint32_t value) {
    return value == kNoChecksum ? kNoChecksum - 1 : value;
}

// A whole file in memory.
struct FileContents {
    const uint8_t* data;
    uint32_t length;
    uint32_t checksum = kFileChecksumStart;
};

// Computes the checksums of several files at once. Within one chain each step waits for the one
// before; interleaving chains takes a quarter of the time. Consumes data and length.
void ChecksumFiles(std::span<FileContents> files);
