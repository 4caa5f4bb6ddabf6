#include "lib/checksum.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

// One word of each chain. The compiler keeps it in two SSE2 registers.
constexpr size_t kLanes = 8;
using Lanes = uint32_t __attribute__((vector_size(kLanes * sizeof(uint32_t))));

// Forced inline: GCC would keep the words in memory, which takes twice as long.
template <typename Word>
inline void Mix(Word& a, Word& b, Word& c) {
    a = (a - b - c) ^ (c >> 13);
    b = (b - c - a) ^ (a << 8);
    c = (c - a - b) ^ (b >> 13);
    a = (a - b - c) ^ (c >> 12);
    b = (b - c - a) ^ (a << 16);
    c = (c - a - b) ^ (b >> 5);
    a = (a - b - c) ^ (c >> 3);
    b = (b - c - a) ^ (a << 10);
    c = (c - a - b) ^ (b >> 15);
}

uint32_t Load32(const uint8_t* bytes) {
    return bytes[0] | static_cast<uint32_t>(bytes[1]) << 8 | static_cast<uint32_t>(bytes[2]) << 16 |
           static_cast<uint32_t>(bytes[3]) << 24;
}

inline void AddWords(Lanes& words, const uint8_t* const* data, size_t at) {
    const auto word = [&](size_t lane) { return Load32(data[lane] + at); };
    words += Lanes{word(0), word(1), word(2), word(3), word(4), word(5), word(6), word(7)};
}

// Chains a piece of each file to its checksum.
void HashPieces(std::span<FileContents* const> files) {
    const uint8_t* data[kLanes];
    Lanes a = Lanes{} + kChecksumSeed;
    Lanes b = a;
    Lanes c{};
    for (size_t i = 0; i < kLanes; ++i) {
        const FileContents& file = *files[std::min(i, files.size() - 1)];
        data[i] = file.data;
        c[i] = file.checksum;
    }
    uint32_t at = 0;
    for (; kFilePiece - at >= 12; at += 12) {
        AddWords(a, data, at);
        AddWords(b, data, at + 4);
        AddWords(c, data, at + 8);
        Mix(a, b, c);
    }
    static_assert(kFilePiece % 12 == 4);
    AddWords(a, data, at);
    c += kFilePiece;
    Mix(a, b, c);
    for (size_t i = 0; i < files.size(); ++i) {
        files[i]->checksum = c[i];
        files[i]->data += kFilePiece;
        files[i]->length -= kFilePiece;
    }
}

}  // namespace

uint32_t Checksum(const void* data, uint32_t length, uint32_t initial) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    uint32_t a = kChecksumSeed;
    uint32_t b = kChecksumSeed;
    uint32_t c = initial;
    uint32_t remaining = length;
    for (; remaining >= 12; remaining -= 12, bytes += 12) {
        a += Load32(bytes);
        b += Load32(bytes + 4);
        c += Load32(bytes + 8);
        Mix(a, b, c);
    }

    // The rest is padded with zeros; the low byte of c holds the length.
    uint8_t rest[12] = {};
    if (remaining > 0) memcpy(rest, bytes, remaining);
    a += Load32(rest);
    b += Load32(rest + 4);
    c += length + (Load32(rest + 8) << 8);
    Mix(a, b, c);
    return c;
}

void ChecksumFiles(std::span<FileContents> files) {
    std::vector<FileContents*> lanes;
    for (auto next = files.begin();;) {
        std::erase_if(lanes, [](const FileContents* file) { return file->length < kFilePiece; });
        for (; lanes.size() < kLanes && next != files.end(); ++next) {
            if (next->length >= kFilePiece) lanes.push_back(&*next);
        }
        if (lanes.size() < 2) break;  // one chain is faster without lanes
        HashPieces(lanes);
    }
    for (FileContents& file : files) {
        while (file.length > 0) {
            const uint32_t piece = std::min(file.length, kFilePiece);
            file.checksum = Checksum(file.data, piece, file.checksum);
            file.data += piece;
            file.length -= piece;
        }
        file.checksum = RealChecksum(file.checksum);
    }
}
