#include "delta/match_finder.h"

#include <divsufsort.h>

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

// Keys of the suffixes are kept apart, where a search finds most of its way: a look at a suffix
// itself waits for memory twice.
constexpr size_t kKeyed = 16;  // suffixes for each key

// Four windows for each word of the filter: about one in a hundred others passes it.
constexpr size_t kOldBytesPerWord = 4 * MatchFinder::kStride;

// Contents smaller than this are sorted at once.
constexpr size_t kSmallestBlock = size_t{1} << 20;

uint64_t Load64(const uint8_t* bytes) {
    uint64_t value;
    memcpy(&value, bytes, sizeof value);
    return value;
}

// The first bytes as a number that sorts as they do, the missing ones filled in.
uint64_t KeyOf(const uint8_t* bytes, size_t length, uint8_t filling) {
    if (length >= sizeof(uint64_t)) return __builtin_bswap64(Load64(bytes));
    uint8_t filled[sizeof(uint64_t)];
    memset(filled, filling, sizeof filled);
    memcpy(filled, bytes, length);
    return __builtin_bswap64(Load64(filled));
}

// How many of the sorted numbers are below the limit. Goes on the same way whichever half it takes,
// as a branch would be guessed wrong every other time.
size_t CountBelow(const std::vector<uint64_t>& numbers, uint64_t limit) {
    size_t begin = 0;
    for (size_t size = numbers.size(); size > 0;) {
        const size_t half = (size + 1) / 2;
        begin += numbers[begin + half - 1] < limit ? half : 0;
        size -= half;
    }
    return begin;
}

// How many bytes from `done` on the two have in common, and those before.
size_t CommonLength(const uint8_t* a, const uint8_t* b, size_t done, size_t limit) {
    while (done + sizeof(uint64_t) <= limit) {
        const uint64_t difference = Load64(a + done) ^ Load64(b + done);
        if (difference != 0) {
            static_assert(std::endian::native == std::endian::little);
            return done + static_cast<size_t>(std::countr_zero(difference)) / 8;
        }
        done += sizeof(uint64_t);
    }
    while (done < limit && a[done] == b[done]) ++done;
    return done;
}

}  // namespace

bool MatchFinder::Index(const uint8_t* old, size_t size, std::string* error) {
    m_old = old;
    m_size = size;
    const size_t blockSize = std::max(kSmallestBlock, (size / 2 + 2) & ~size_t{1});
    for (size_t begin = 0; begin < size; begin += blockSize) {
        Block block;
        block.begin = begin;
        block.end = std::min(begin + blockSize, size);
        if (!Sort(&block)) {
            *error = "not enough memory to index " + std::to_string(size) + " bytes";
            return false;
        }
        m_blocks.push_back(std::move(block));
    }
    return true;
}

bool MatchFinder::Sort(Block* block) {
    const uint8_t* text = m_old + block->begin;
    const size_t size = block->end - block->begin;
    auto& suffixes = block->suffixes;
    suffixes.reset(static_cast<int32_t*>(malloc(size * sizeof(int32_t))));
    if (!suffixes) return false;
    if (divsufsort(text, suffixes.get(), static_cast<int32_t>(size)) != 0) return false;
    int32_t* kept = std::copy_if(suffixes.get(), suffixes.get() + size, suffixes.get(),
                                 [](int32_t suffix) { return suffix % 2 == 0; });
    block->count = static_cast<size_t>(kept - suffixes.get());
    if (void* smaller = realloc(suffixes.get(), block->count * sizeof(int32_t))) {
        static_cast<void>(suffixes.release());
        suffixes.reset(static_cast<int32_t*>(smaller));
    }
    for (size_t i = 0; i < block->count; i += kKeyed) {
        const auto suffix = static_cast<size_t>(suffixes[i]);
        block->keys.push_back(KeyOf(text + suffix, size - suffix, 0));
    }
    return true;
}

Match MatchFinder::Longest(const uint8_t* text, size_t length) const {
    Match longest;
    if (length < 2) return longest;
    for (const Block& block : m_blocks) Search(block, text, length, &longest);
    return longest;
}

void MatchFinder::Search(const Block& block, const uint8_t* text, size_t length,
                         Match* longest) const {
    // The text stands between the suffix of the last key before it and that of the first one after.
    const size_t first = CountBelow(block.keys, KeyOf(text, length, 0));
    size_t last = first;
    const uint64_t highest = KeyOf(text, length, 0xFF);
    if (first < block.keys.size() && block.keys[first] <= highest) {
        last = highest == UINT64_MAX ? block.keys.size() : CountBelow(block.keys, highest + 1);
    }
    size_t begin = first == 0 ? 0 : (first - 1) * kKeyed;
    size_t end = std::min(last * kKeyed + 1, block.count);
    // What the text has in common with the suffixes just outside the range; all within it have the
    // lesser of the two in common with the text.
    size_t below = 0;
    size_t above = 0;
    while (begin < end) {
        const size_t middle = begin + (end - begin) / 2;
        const size_t offset = block.begin + static_cast<size_t>(block.suffixes[middle]);
        const uint8_t* suffix = m_old + offset;
        const size_t limit = std::min(length, block.end - offset);
        size_t common = CommonLength(text, suffix, std::min(below, above), limit);
        if (common == limit || suffix[common] < text[common]) {
            begin = middle + 1;
            below = common;
        } else {
            end = middle;
            above = common;
        }
        // A match may go on in the next block.
        if (common == limit) {
            common = CommonLength(text, suffix, common, std::min(length, m_size - offset));
        }
        if (common > longest->length) {
            *longest = {static_cast<uint32_t>(offset), static_cast<uint32_t>(common)};
            if (common == length) return;
        }
    }
}

// The bits of a window are in one word, so that a look at them touches memory once.
MatchFinder::FilterBits MatchFinder::BitsOf(const uint8_t* window) const {
    static_assert(kWindow == 15);
    const uint64_t mixed = Load64(window) * 0x9E3779B97F4A7C15u +
                           std::rotl(Load64(window + 7), 29) * 0xC2B2AE3D27D4EB4Fu;
    const uint64_t hash = (mixed ^ mixed >> 32) * 0xD6E8FEB86659FD93u;
    const uint64_t bits = uint64_t{1} << (hash & 63) | uint64_t{1} << (hash >> 6 & 63) |
                          uint64_t{1} << (hash >> 12 & 63);
    return {static_cast<size_t>((hash >> 32) * m_filter.size() >> 32), bits};
}

void MatchFinder::BuildFilter() {
    m_filter.assign(m_size / kOldBytesPerWord + 1, 0);
    for (size_t i = 0; i + kWindow <= m_size; i += kStride) {
        const auto [word, bits] = BitsOf(m_old + i);
        m_filter[word] |= bits;
    }
}

bool MatchFinder::MayMatch(const uint8_t* text) {
    if (m_filter.empty()) BuildFilter();
    const auto [word, bits] = BitsOf(text);
    return (m_filter[word] & bits) == bits;
}
