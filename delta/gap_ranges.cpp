#include "delta/gap_ranges.h"

#include <algorithm>
#include <bit>

#include "delta/bytes.h"

namespace {

// Gaps that are shorter are literals whatever stands nearby.
constexpr size_t kLeastGap = 6;

// The part of the old contents that is indexed for being beside gaps, and how much beside each.
constexpr size_t kBesidePart = 32;
constexpr size_t kMostBeside = 65536;

// When more than this part would be indexed, everything is.
constexpr size_t kLargestPart = 4;

// How many places of one window are indexed. Contents that repeat themselves need no more.
constexpr uint32_t kMostFound = 16;

// The distance of the places in the old contents where windows are looked for.
constexpr size_t kWindowStride = 4;

// What is indexed of a window that was found: the bytes before it, since a match may begin there,
// and from its beginning on enough to tell most matches apart.
constexpr size_t kBefore = kWindowStride;
constexpr size_t kAfter = 30;

// The windows of the gaps, and how often each was found. Of windows with neighbouring hashes at
// most kSlots are kept; further ones are dropped.
class WindowTable {
public:
    explicit WindowTable(size_t count) : m_bits(std::bit_width(count) + 1) {
        m_slots.assign((size_t{1} << m_bits) + kSlots, 0);
    }

    void Add(const uint8_t* window) {
        const uint64_t hash = HashOfWindow(window);
        uint32_t* entry = EntryFor(hash);
        if (*entry == 0) *entry = Begun(hash);
    }

    bool Find(const uint8_t* window) {
        const uint64_t hash = HashOfWindow(window);
        uint32_t* entry = EntryFor(hash);
        if (*entry == 0 || *entry - Begun(hash) >= kMostFound) return false;
        ++*entry;
        return true;
    }

private:
    static constexpr size_t kSlots = 4;

    // Bits of the hash, above a byte that counts from one on.
    static uint32_t Begun(uint64_t hash) { return static_cast<uint32_t>(hash) << 8 | 1; }

    uint32_t* EntryFor(uint64_t hash) {
        uint32_t* entry = &m_slots[hash >> (64 - m_bits)];
        for (size_t i = 1; i < kSlots && *entry != 0 && (*entry ^ Begun(hash)) > 0xFF; ++i) ++entry;
        return entry;
    }

    int m_bits;
    std::vector<uint32_t> m_slots;
};

// In order and even; those that touch become one.
std::vector<Range> Joined(std::vector<Range> ranges, size_t oldSize) {
    for (Range& range : ranges) {
        range.begin -= range.begin % 2;
        range.end = std::min(range.end + range.end % 2, oldSize);
    }
    std::ranges::sort(ranges, {}, &Range::begin);
    std::vector<Range> joined;
    for (const Range& range : ranges) {
        if (!joined.empty() && range.begin <= joined.back().end) {
            joined.back().end = std::max(joined.back().end, range.end);
        } else {
            joined.push_back(range);
        }
    }
    return joined;
}

}  // namespace

std::vector<Range> GapRanges(const std::vector<LongMatch>& matches, const uint8_t* old,
                             size_t oldSize, const uint8_t* contents, size_t size) {
    if (matches.empty()) return {};
    std::vector<Range> gaps;
    std::vector<size_t> edges;  // of the gaps, in the old contents
    size_t gapBytes = 0;
    const auto add = [&](Range gap, size_t before, size_t after) {
        if (gap.end - gap.begin < kLeastGap) return;
        gaps.push_back(gap);
        edges.insert(edges.end(), {before, after});
        gapBytes += gap.end - gap.begin;
    };
    LongMatch last{0, 0, 0};
    for (const LongMatch& match : matches) {
        add({last.End(), match.begin}, last.offset + last.length, match.offset);
        last = match;
    }
    add({last.End(), size}, last.offset + last.length, oldSize);

    std::vector<Range> ranges = {{0, std::min(oldSize, kAfter)}};
    for (const size_t edge : edges) {
        const size_t width = std::min(oldSize / kBesidePart / edges.size() / 2, kMostBeside);
        ranges.push_back({edge - std::min(edge, width), std::min(edge + width, oldSize)});
    }

    WindowTable windows(gapBytes);
    for (const Range& gap : gaps) {
        for (size_t at = gap.begin; at + kWindow <= gap.end; ++at) windows.Add(contents + at);
    }
    size_t left = oldSize / kLargestPart;
    size_t end = 0;
    for (size_t at = kBefore; at + kWindow <= oldSize; at += kWindowStride) {
        if (!windows.Find(old + at)) continue;
        const Range range = {std::max(at - kBefore, end), std::min(at + kAfter, oldSize)};
        if (range.end - range.begin > left) return {};
        left -= range.end - range.begin;
        ranges.push_back(range);
        end = range.end;
    }
    return Joined(std::move(ranges), oldSize);
}
