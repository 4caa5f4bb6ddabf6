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

#include "delta/bytes.h"

struct Match {
    uint32_t offset = 0;  // in the old contents
    uint32_t length = 0;
};

struct Range {
    size_t begin;
    size_t end;
};

// An index of the old contents, or of parts of them: sorted suffixes, of every other byte, which
// take two bytes for each byte of the contents. They are sorted block by block, since sorting takes
// twice as much. The contents are not owned and must outlive the finder.
class MatchFinder {
public:
    // Sorts the suffixes that begin in the ranges: a single one, or several, apart and in order, of
    // no more than 2 GiB together, which begin and end at even offsets if the contents do. False
    // when memory does not suffice. Call once on a new finder.
    [[nodiscard]] bool Index(const uint8_t* old, size_t size, const std::vector<Range>& ranges,
                             std::string* error);

    // The longest stretch that `text` begins with of every other one that is indexed. Any is found
    // from its second byte at the latest. Costs the logarithm of what is indexed, and as many
    // comparisons of the match's length at the most.
    Match Longest(const uint8_t* text, size_t length) const;

    // Whether a stretch of what is indexed may match from `text`, of at least kWindow bytes, or
    // from one of the kWindowStride - 1 bytes before it: false only when there is no match that
    // holds kWindow bytes from `text` and begins kWindowStride - 1 bytes or more before it. One
    // memory access, after a first call that costs a pass over what is indexed.
    bool MayMatch(const uint8_t* text);

private:
    struct Free {
        void operator()(void* memory) const { free(memory); }
    };

    struct Piece {
        uint32_t at;      // in the text of a block
        uint32_t offset;  // in the old contents
    };

    // Some of the old contents, sorted by themselves.
    struct Block {
        const uint8_t* text = nullptr;  // in the old contents, or what was gathered from them
        size_t size = 0;
        std::vector<uint8_t> gathered;
        std::vector<Piece> pieces;                  // what the text consists of
        std::unique_ptr<int32_t[], Free> suffixes;  // places in the text
        size_t count = 0;                           // of the suffixes
        std::vector<uint64_t> keys;                 // of suffixes at regular distances
    };

    bool Sort(Block* block);
    void Search(const Block& block, const uint8_t* text, size_t length, Match* longest) const;
    void Improve(Match* longest, const Block& block, size_t at, const uint8_t* text, size_t length,
                 size_t common) const;

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
