// The search for stretches of new contents in the old ones.
#ifndef HALCYRIX_DELTA_MATCH_FINDER_H
#define HALCYRIX_DELTA_MATCH_FINDER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

struct Match {
    uint32_t offset = 0;  // in the old contents
    uint32_t length = 0;
};

// An index of the old contents: sorted suffixes, of every other byte, which take two bytes for each
// byte of the contents. They are sorted block by block, since sorting takes twice as much. The
// contents are not owned and must outlive the finder.
class MatchFinder {
public:
    // The suffix array has signed 32-bit entries.
    static constexpr size_t kMaxSize = 0x7FFFFFFF;

    // Sorts the suffixes. False when memory does not suffice. Call once on a new finder, with at
    // most kMaxSize bytes.
    [[nodiscard]] bool Index(const uint8_t* old, size_t size, std::string* error);

    // The longest stretch that `text` begins with of those that begin at an even offset. One that
    // begins at an odd offset is found from its second byte. Costs the logarithm of the old size,
    // and as many comparisons of the match's length at the most.
    Match Longest(const uint8_t* text, size_t length) const;

    // Whether a stretch of the old contents may match from `text`, of at least kWindow bytes, or
    // from one of the kStride - 1 bytes before it: false only when there is no match that holds
    // kWindow bytes from `text` and begins kStride - 1 bytes or more before it. One memory access,
    // after a first call that costs a pass over the old contents.
    static constexpr size_t kWindow = 15;
    static constexpr size_t kStride = 4;
    bool MayMatch(const uint8_t* text);

private:
    struct Free {
        void operator()(void* memory) const { free(memory); }
    };

    // A part of the old contents that is sorted by itself.
    struct Block {
        size_t begin = 0;
        size_t end = 0;
        std::unique_ptr<int32_t[], Free> suffixes;  // from the block's begin
        size_t count = 0;                           // of the suffixes
        std::vector<uint64_t> keys;                 // of suffixes at regular distances
    };

    bool Sort(Block* block);
    void Search(const Block& block, const uint8_t* text, size_t length, Match* longest) const;

    struct FilterBits {
        size_t word;
        uint64_t bits;
    };

    void BuildFilter();
    FilterBits BitsOf(const uint8_t* window) const;

    const uint8_t* m_old = nullptr;
    size_t m_size = 0;
    std::vector<Block> m_blocks;
    std::vector<uint64_t> m_filter;  // has the windows at multiples of the stride
};

#endif
