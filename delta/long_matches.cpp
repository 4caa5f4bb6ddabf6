#include "delta/long_matches.h"

#include <algorithm>
#include <bit>
#include <optional>

#include "delta/bytes.h"

namespace {

constexpr size_t kBlock = 32;

// Smaller files are as quickly indexed as a whole.
constexpr size_t kSmallest = size_t{1} << 20;

// With more than this part uncovered, too much lies between the matches to be searched there.
constexpr size_t kUncoveredPart = 16;

// A shorter match that a hash found may have a better place elsewhere.
constexpr size_t kLeastFound = 256;

// How far behind a match the same shift is tried before the table is asked.
constexpr size_t kNear = 64;

// The search around the expected place: its reach, and how many bytes it compares at most.
constexpr size_t kBeside = 4096;
constexpr size_t kMostCompared = 65536;

// The farthest that a match is extended back, over matches that it replaces.
constexpr size_t kFarthestBack = 65536;

constexpr size_t kNowhere = SIZE_MAX;

// The blocks of the old contents, one for each value of a hash, so that contents which repeat
// themselves cost no more than others.
class BlockTable {
public:
    BlockTable(const uint8_t* old, size_t size) : m_bits(std::bit_width(size / kBlock) + 1) {
        m_slots.assign(size_t{1} << m_bits, 0);
        for (size_t at = 0; at + kBlock <= size; at += kBlock) {
            const uint64_t hash = HashOf(old + at);
            uint32_t& entry = m_slots[hash >> (64 - m_bits)];
            if (entry == 0) entry = TagOf(hash) | static_cast<uint32_t>(at / kBlock + 1);
        }
    }

    // Where in the old contents the bytes may stand; kNowhere when they are no block of them.
    size_t Find(const uint8_t* bytes) const {
        const uint64_t hash = HashOf(bytes);
        const uint32_t entry = m_slots[hash >> (64 - m_bits)];
        if (entry == 0 || (entry ^ TagOf(hash)) > kNumber) return kNowhere;
        return ((entry & kNumber) - 1) * kBlock;
    }

private:
    // An entry is the number of a block, plus one, and some bits of its hash above.
    static constexpr uint32_t kNumber = (1u << 27) - 1;
    static uint32_t TagOf(uint64_t hash) { return static_cast<uint32_t>(hash) & ~kNumber; }

    static uint64_t HashOf(const uint8_t* block) {
        return HashOfWindow(block) + std::rotl(HashOfWindow(block + kBlock - kWindow), 23);
    }

    int m_bits;
    std::vector<uint32_t> m_slots;
};

class Walk {
public:
    Walk(const MappedFile& from, MappedFile* to)
        : m_old(from.Data()),
          m_oldSize(from.Size()),
          m_new(to->Data()),
          m_size(to->Size()),
          m_to(to) {}

    std::vector<LongMatch> All() {
        const size_t most = m_size / kUncoveredPart;
        size_t released = 0;
        while (Next(most)) {
            constexpr size_t kPiece = size_t{1} << 20;
            m_to->Release(released, End() - End() % kPiece);
            released = std::max(released, End() - End() % kPiece);
        }
        if (m_size - m_covered > most) m_matches.clear();
        return std::move(m_matches);
    }

private:
    size_t End() const { return m_matches.empty() ? 0 : m_matches.back().End(); }

    // Adds the next match, unless more than `most` bytes remain uncovered.
    bool Next(size_t most) {
        const size_t from = End();
        const size_t left = most - std::min(most, from - m_covered);
        const size_t end = std::min(from + left, m_size - (kBlock - 1));
        const size_t shift =
            m_matches.empty() ? 0 : m_matches.back().offset - m_matches.back().begin;
        for (size_t at = from; at < std::min(from + kNear, end); ++at) {
            if (Try(at, at + shift, kBlock)) return true;
        }
        if (from >= end) return false;
        if (!m_table) m_table.emplace(m_old, m_oldSize);
        bool searched = false;
        for (size_t at = from; at < end; ++at) {
            if (at >= from + kNear && Try(at, at + shift, kBlock)) return true;
            const size_t found = m_table->Find(m_new + at);
            if (found == kNowhere) continue;
            const size_t beside = searched ? kNowhere : BestBeside(at, at + shift);
            searched = true;
            if (Try(at, beside, kLeastFound) || Try(at, found, kLeastFound)) return true;
        }
        return false;
    }

    // Where within kBeside of the expected place the block at `begin` has the longest match. The
    // table has only the first place of a block, which in repetitive contents is a wrong one.
    size_t BestBeside(size_t begin, size_t expected) const {
        const uint8_t* block = m_new + begin;
        const uint8_t* end = m_old + std::min(expected + kBeside, m_oldSize);
        size_t best = kNowhere;
        size_t longest = 0;
        size_t left = kMostCompared;
        const uint8_t* at = m_old + std::min(expected - std::min(expected, kBeside), m_oldSize);
        while (left > 0 && (at = static_cast<const uint8_t*>(memmem(
                                at, static_cast<size_t>(end - at), block, kBlock))) != nullptr) {
            const size_t limit =
                std::min({left, m_size - begin, m_oldSize - static_cast<size_t>(at - m_old)});
            const size_t length = CommonLength(block, at, 0, limit);
            left -= length;
            if (length > longest) {
                longest = length;
                best = static_cast<size_t>(at - m_old);
            }
            ++at;
        }
        return best;
    }

    bool Try(size_t begin, size_t offset, size_t least) {
        if (offset >= m_oldSize || m_oldSize - offset < kBlock) return false;
        const uint8_t* now = m_new + begin;
        const uint8_t* before = m_old + offset;
        if (Load64(now) != Load64(before) || memcmp(now, before, kBlock) != 0) return false;
        const size_t length =
            CommonLength(now, before, kBlock, std::min(m_size - begin, m_oldSize - offset));
        size_t back = 0;
        const size_t farthest = std::min({begin, offset, kFarthestBack});
        while (back < farthest && *(now - back - 1) == *(before - back - 1)) ++back;
        if (length + back < least) return false;
        Add({begin - back, offset - back, length + back});
        return true;
    }

    void Add(LongMatch match) {
        while (!m_matches.empty() && m_matches.back().begin >= match.begin) {
            m_covered -= m_matches.back().length;
            m_matches.pop_back();
        }
        if (End() > match.begin) {
            const size_t taken = End() - match.begin;
            match = {match.begin + taken, match.offset + taken, match.length - taken};
        }
        m_covered += match.length;
        m_matches.push_back(match);
    }

    const uint8_t* m_old;
    size_t m_oldSize;
    const uint8_t* m_new;
    size_t m_size;
    MappedFile* m_to;
    std::vector<LongMatch> m_matches;
    size_t m_covered = 0;  // the sum of their lengths
    std::optional<BlockTable> m_table;
};

}  // namespace

std::vector<LongMatch> LongMatches(const MappedFile& from, MappedFile* to) {
    if (from.Size() < kSmallest || to->Size() < kBlock) return {};
    return Walk(from, to).All();
}
