#include "delta/delta_plan.h"

#include <algorithm>

#include "delta/bytes.h"
#include "lib/patch_format.h"

namespace {

// A match of this length always becomes a copy: as a literal it would cost more than the copy and
// the literal headers on both sides.
constexpr uint32_t kSureMatch = 32;

constexpr uint32_t kCopyCost = kPatchCopySize;
constexpr uint32_t kLiteralCost = kPatchLiteralHeaderSize;

// A gap is closed at this size, to bound the memory of its plan.
constexpr size_t kMaxGap = 4096;

class Planner {
public:
    Planner(const DeltaSources& sources, size_t begin, size_t end, PatchWriter* writer)
        : m_sources(sources),
          m_old(sources.old),
          m_new(sources.contents),
          m_end(end),
          m_writer(writer),
          m_known(std::partition_point(
              sources.matches.begin(), sources.matches.end(),
              [begin](const LongMatch& match) { return match.End() <= begin; })),
          m_position(begin) {}

    void Run() {
        while (m_position < m_end) {
            Match match = KnownAt(m_position);
            if (match.length == 0 && MayMatchAt(m_position)) match = Longest(m_position);
            if (match.length < kSureMatch) {
                AddToGap(match);
                if (m_gap.size() == kMaxGap) CloseGap();
                continue;
            }
            // The filter may have passed over the beginning of the match.
            while (!m_gap.empty() && match.offset > 0 &&
                   m_old[match.offset - 1] == m_new[m_position - 1]) {
                m_gap.pop_back();
                --m_position;
                --match.offset;
                ++match.length;
            }
            CloseGap();
            m_writer->Copy(match.offset, match.length);
            m_position += match.length;
        }
        CloseGap();
    }

private:
    // The rest of a known long match that holds this position.
    Match KnownAt(size_t position) {
        const auto end = m_sources.matches.end();
        while (m_known != end && m_known->End() <= position) ++m_known;
        if (m_known == end || m_known->begin > position) return {};
        const size_t passed = position - m_known->begin;
        return {static_cast<uint32_t>(m_known->offset + passed),
                static_cast<uint32_t>(std::min(m_known->End(), m_end) - position)};
    }

    Match Longest(size_t position) const {
        return m_sources.finder.Longest(m_new + position, m_end - position);
    }
    bool MayMatchAt(size_t position) const {
        return m_end - position >= kWindow && m_sources.finder.MayMatch(m_new + position);
    }

    void AddToGap(Match match) {
        if (!m_gap.empty() && m_gap.back().length > match.length + 1) {
            match = {m_gap.back().offset + 1, m_gap.back().length - 1};
        }
        m_gap.push_back(match);
        ++m_position;
        ExtendBack(m_gap.size() - 1);
    }

    // The match from this place of the gap may begin before it: the filter passes over bytes, and
    // the index has every other one.
    void ExtendBack(size_t place) {
        Match match = m_gap[place];
        const uint8_t* text = m_new + m_position - m_gap.size();
        for (; place > 0 && match.length > 0 && match.offset > 0; --place) {
            if (m_old[match.offset - 1] != text[place - 1]) break;
            --match.offset;
            ++match.length;
            if (match.length <= m_gap[place - 1].length) break;
            m_gap[place - 1] = match;
        }
    }

    // Where in the gap the longest copy from this place ends.
    size_t CopyEnd(size_t place) const {
        return std::min(place + m_gap[place].length, m_gap.size());
    }
    // What that copy costs, with all that follows it.
    uint32_t CopyCost(size_t place) const {
        return m_gap[place].length == 0 ? UINT32_MAX : kCopyCost + m_elsewhere[CopyEnd(place)];
    }

    void CloseGap() {
        const size_t size = m_gap.size();
        if (size == 0) return;

        // A copy that is too short for the filter pays when it is the whole gap.
        for (size_t i = 0; i < 2 && size >= kLiteralCost; ++i) {
            if (m_gap[i].length > 0) continue;
            m_gap[i] = Longest(m_position - size + i);
            ExtendBack(i);
        }

        // The longest copy is the best one: fewer bytes that follow never cost more.
        m_inLiteral.assign(size + 1, 0);
        m_elsewhere.assign(size + 1, 0);
        for (size_t at = size; at-- > 0;) {
            const uint32_t literal = 1 + m_inLiteral[at + 1];
            m_inLiteral[at] = std::min(literal, CopyCost(at));
            m_elsewhere[at] = std::min(literal + kLiteralCost, CopyCost(at));
        }
        for (size_t at = 0; at < size;) {
            if (CopyCost(at) == (m_writer->InLiteral() ? m_inLiteral : m_elsewhere)[at]) {
                const size_t end = CopyEnd(at);
                m_writer->Copy(m_gap[at].offset, static_cast<uint32_t>(end - at));
                at = end;
            } else {
                m_writer->Literal(1);
                ++at;
            }
        }
        m_gap.clear();
    }

    const DeltaSources& m_sources;
    const uint8_t* m_old;
    const uint8_t* m_new;
    size_t m_end;
    PatchWriter* m_writer;
    std::vector<LongMatch>::const_iterator m_known;  // the first that may be of use

    size_t m_position;         // all before it are written or in the gap
    std::vector<Match> m_gap;  // for each of its bytes, the longest known match from there on

    // For each place in the gap, the least cost of what follows it, in a literal and elsewhere.
    std::vector<uint32_t> m_inLiteral;
    std::vector<uint32_t> m_elsewhere;
};

}  // namespace

void PlanStretch(const DeltaSources& sources, size_t begin, size_t end, PatchWriter* writer) {
    Planner(sources, begin, end, writer).Run();
}
