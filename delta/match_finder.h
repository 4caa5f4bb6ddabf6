// The search for stretches of new contents in the old ones.
#pragma once

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

struct Range {
    size_t begin;
    size_t end;
};

// An index of the old contents, or of parts of them: the sorted suffixes that begin at even
// offsets, and a filter. Both take three bytes of memory for each byte that is indexed; building
// them takes five. The old contents are not owned and must outlive the finder.
class MatchFinder {
public:
    // Indexes the ranges: a single one, or several, apart and in order, of no more than 2 GiB
    // together, with even bounds. Only the end of the contents may be odd. Sorts in up to `threads`
    // threads. False when memory does not suffice. Call once on a new finder.
    [[nodiscard]] bool Index(const uint8_t* old, size_t size, const std::vector<Range>& ranges,
                             size_t threads, std::string* error);

    // The longest match of `text` that begins at an even offset of the index; a match at an odd one
    // is found a byte later. Takes a binary search, which reads the text once at each step at most.
    Match Longest(const uint8_t* text, size_t length) const;

    // False when Longest() finds less than kWindow bytes. A Bloom filter: it may be true without a
    // match. Takes one memory access.
    bool MayMatch(const uint8_t* text) const;

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

    void AddToFilter(const Block& block);
    FilterBits BitsOf(const uint8_t* window) const;

    const uint8_t* m_old = nullptr;
    size_t m_size = 0;
    std::vector<Block> m_blocks;
    std::vector<uint64_t> m_filter;  // has the windows that begin at even offsets
};
