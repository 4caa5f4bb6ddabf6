#include "release/match_finder.h"

#include <divsufsort.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

namespace {

constexpr size_t kPairs = size_t{256} * 256;

// Four windows for each word of the filter: about one in a hundred others passes it.
constexpr size_t kOldBytesPerWord = 4 * MatchFinder::kStride;

size_t PairAt(const uint8_t* bytes) {
    return bytes[0] * size_t{256} + bytes[1];
}

uint64_t Load64(const uint8_t* bytes) {
    uint64_t value;
    memcpy(&value, bytes, sizeof value);
    return value;
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
    m_ranges.assign(kPairs, Range());
    if (size == 0) return true;
    m_suffixes.reset(new (std::nothrow) int32_t[size]);
    if (!m_suffixes || divsufsort(old, m_suffixes.get(), static_cast<int32_t>(size)) != 0) {
        *error = "not enough memory to index " + std::to_string(size) + " bytes";
        return false;
    }

    std::vector<uint32_t> counts(kPairs);
    for (size_t i = 0; i + 1 < size; ++i) ++counts[PairAt(old + i)];
    uint32_t place = 0;
    for (size_t pair = 0; pair < kPairs; ++pair) {
        // The last byte is a suffix of its own, before all others that begin with it.
        if (pair == old[size - 1] * size_t{256}) ++place;
        m_ranges[pair] = {place, place + counts[pair]};
        place += counts[pair];
    }
    return true;
}

Match MatchFinder::Longest(const uint8_t* text, size_t length) const {
    Match longest;
    if (length < 2) return longest;
    auto [begin, end] = m_ranges[PairAt(text)];
    // What the text has in common with the suffixes just outside the range; all within it have the
    // lesser of the two in common with the text.
    size_t below = 2;
    size_t above = 2;
    while (begin < end) {
        const uint32_t middle = begin + (end - begin) / 2;
        const auto offset = static_cast<size_t>(m_suffixes[middle]);
        const uint8_t* suffix = m_old + offset;
        const size_t limit = std::min(length, m_size - offset);
        const size_t common = CommonLength(text, suffix, std::min(below, above), limit);
        if (common > longest.length) {
            longest = {static_cast<uint32_t>(offset), static_cast<uint32_t>(common)};
            if (common == length) break;
        }
        if (common == limit || suffix[common] < text[common]) {
            begin = middle + 1;
            below = common;
        } else {
            end = middle;
            above = common;
        }
    }
    return longest;
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
