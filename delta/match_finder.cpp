#include "delta/match_finder.h"

#include <divsufsort.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "delta/bytes.h"
#include "delta/threads.h"
#include "lib/failure.h"

namespace {

// Keys of the suffixes are kept apart, where a search finds most of its way: a look at a suffix
// itself waits for memory twice.
constexpr size_t kKeyed = 16;  // suffixes for each key

// The filter has a word for eight windows; about one in forty others passes it.
constexpr size_t kOldBytesPerWord = 16;

// Contents smaller than this are sorted at once.
constexpr size_t kSmallestBlock = size_t{1} << 20;

// The entries of a suffix array have 31 bits.
constexpr size_t kLargestBlock = size_t{1} << 30;

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

}  // namespace

bool MatchFinder::Index(const uint8_t* old, size_t size, const std::vector<Range>& ranges,
                        size_t threads, std::string* error) {
    m_old = old;
    m_size = size;
    if (ranges.size() > 1) {
        Block block;
        size_t total = 0;
        for (const Range& range : ranges) total += range.end - range.begin;
        block.gathered.reserve(total);
        block.pieces.reserve(ranges.size());
        for (const Range& range : ranges) {
            block.pieces.push_back(
                {static_cast<uint32_t>(block.gathered.size()), static_cast<uint32_t>(range.begin)});
            block.gathered.insert(block.gathered.end(), old + range.begin, old + range.end);
        }
        block.text = block.gathered.data();
        block.size = block.gathered.size();
        m_blocks.push_back(std::move(block));
    } else if (!ranges.empty()) {
        const auto [begin, end] = ranges.front();
        const size_t half = ((end - begin) / 2 + 2) & ~size_t{1};
        const size_t blockSize = std::clamp(half, kSmallestBlock, kLargestBlock);
        for (size_t at = begin; at < end; at += blockSize) {
            Block block;
            block.text = old + at;
            block.size = std::min(blockSize, end - at);
            block.pieces.push_back({0, static_cast<uint32_t>(at)});
            m_blocks.push_back(std::move(block));
        }
    }
    size_t indexed = 0;
    for (const Block& block : m_blocks) indexed += block.size;
    m_filter.assign(indexed / kOldBytesPerWord + 1, 0);
    std::atomic<size_t> next{0};
    std::atomic<bool> sorted{true};
    RunInThreads(std::min(threads, m_blocks.size()), [&] {
        for (size_t i; (i = next++) < m_blocks.size();) {
            if (!Sort(&m_blocks[i])) sorted = false;
            AddToFilter(m_blocks[i]);
        }
    });
    return sorted || Fail(error, "not enough memory to index " + std::to_string(size) + " bytes");
}

bool MatchFinder::Sort(Block* block) {
    const size_t size = block->size;
    auto& suffixes = block->suffixes;
    suffixes.reset(static_cast<int32_t*>(malloc(size * sizeof(int32_t))));
    if (!suffixes) return false;
    if (divsufsort(block->text, suffixes.get(), static_cast<int32_t>(size)) != 0) return false;
    int32_t* kept = std::copy_if(suffixes.get(), suffixes.get() + size, suffixes.get(),
                                 [](int32_t suffix) { return suffix % 2 == 0; });
    block->count = static_cast<size_t>(kept - suffixes.get());
    if (void* smaller = realloc(suffixes.get(), block->count * sizeof(int32_t))) {
        static_cast<void>(suffixes.release());
        suffixes.reset(static_cast<int32_t*>(smaller));
    }
    block->keys.reserve(block->count / kKeyed + 1);
    for (size_t i = 0; i < block->count; i += kKeyed) {
        const auto suffix = static_cast<size_t>(suffixes[i]);
        block->keys.push_back(KeyOf(block->text + suffix, size - suffix, 0));
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
        const auto at = static_cast<size_t>(block.suffixes[middle]);
        const uint8_t* suffix = block.text + at;
        const size_t limit = std::min(length, block.size - at);
        const size_t common = CommonLength(text, suffix, std::min(below, above), limit);
        if (common == limit || suffix[common] < text[common]) {
            begin = middle + 1;
            below = common;
        } else {
            end = middle;
            above = common;
        }
        if (common > longest->length || common == limit) {
            Improve(longest, block, at, text, length, common);
            if (longest->length == length) return;
        }
    }
}

// Takes the match of a suffix if it is longer. In the old contents a match may go on where the
// block's text ends, or end where two pieces of the text meet.
void MatchFinder::Improve(Match* longest, const Block& block, size_t at, const uint8_t* text,
                          size_t length, size_t common) const {
    const auto next = std::ranges::upper_bound(block.pieces, at, {}, &Piece::at);
    const size_t end = next == block.pieces.end() ? block.size : next->at;
    const size_t offset = std::prev(next)->offset + at - std::prev(next)->at;
    if (common >= end - at) {
        common = CommonLength(text, m_old + offset, end - at, std::min(length, m_size - offset));
    }
    if (common > longest->length) {
        *longest = {static_cast<uint32_t>(offset), static_cast<uint32_t>(common)};
    }
}

// The bits of a window are in one word, so that a look at them touches memory once.
MatchFinder::FilterBits MatchFinder::BitsOf(const uint8_t* window) const {
    const uint64_t hash = HashOfWindow(window);
    uint64_t bits = 0;
    for (int shift = 0; shift < 24; shift += 6) bits |= uint64_t{1} << (hash >> shift & 63);
    return {static_cast<size_t>((hash >> 32) * m_filter.size() >> 32), bits};
}

void MatchFinder::AddToFilter(const Block& block) {
    for (size_t i = 0; i < block.pieces.size(); ++i) {
        const auto [at, offset] = block.pieces[i];
        const size_t end = i + 1 < block.pieces.size() ? block.pieces[i + 1].at : block.size;
        const uint8_t* begin = m_old + offset;
        const size_t windows = std::min(end - at, m_size - std::min(m_size, offset + kWindow - 1));
        for (size_t j = 0; j < windows; j += 2) {
            const auto [word, bits] = BitsOf(begin + j);
            std::atomic_ref(m_filter[word]).fetch_or(bits, std::memory_order_relaxed);
        }
    }
}

bool MatchFinder::MayMatch(const uint8_t* text) const {
    const auto [word, bits] = BitsOf(text);
    return (m_filter[word] & bits) == bits;
}
