// The one 32-bit checksum of the system: file contents, resume tails and version record keys.
#ifndef HALCYRIX_LIB_CHECKSUM_H
#define HALCYRIX_LIB_CHECKSUM_H

#include <cstdint>
#include <span>

// In the place of the hash's golden ratio.
constexpr uint32_t kChecksumSeed = 0xa5be5705;

// Initial values of the three uses.
constexpr uint32_t kFileChecksumStart = 0x03133700;
constexpr uint32_t kRangeChecksumStart = kChecksumSeed;
constexpr uint32_t kComponentKeyStart = 0xacce55ed;

// Stands for "no checksum" wherever a checksum is expected; no file has it.
constexpr uint32_t kNoChecksum = 0xFFFFFFFF;

// Bob Jenkins' lookup2 hash ("Hash Functions", Dr. Dobb's Journal, September 1997) with
// kChecksumSeed in the place of its golden ratio.
//
// Inputs in pieces are chained: each piece's result is the initial value of the next, and the
// result depends on where the pieces are cut.
uint32_t Checksum(const void* data, uint32_t length, uint32_t initial);

// Of whole files: chained over pieces of this many bytes, and never kNoChecksum.
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

// Finds the checksums of all the files, several at once, which takes a quarter of the time: a
// chain's steps wait for one another, those of different chains do not. Data and length are used
// up.
void ChecksumFiles(std::span<FileContents> files);

#endif
