#include "delta/delta_plan.h"

#include <algorithm>
#include <utility>

#include "lib/patch_format.h"

namespace {

// A match of this length always becomes a copy: as a literal it would cost more than the copy and
// the literal headers on both sides.
constexpr uint32_t kSureMatch = 32;

constexpr uint32_t kCopyCost = kPatchCopySize;
constexpr uint32_t kLiteralCost = kPatchLiteralHeaderSize;

// A gap is closed at this size, to bound the memory of its plan.
constexpr size_t kMaxGap = 4096;

constexpr uint32_t kImpossible = UINT32_MAX / 2;

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

    void Run();

private:
    Match KnownAt(size_t position);
    Match Longest(size_t position) const {
        return m_sources.finder.Longest(m_new + position, m_end - position);
    }
    bool MayMatchAt(size_t position) const {
        return m_end - position >= kWindow && m_sources.finder.MayMatch(m_new + position);
    }
    void AddToGap(Match match);
    void ExtendBack(size_t place);
    void CloseGap();

    const DeltaSources& m_sources;
    const uint8_t* m_old;
    const uint8_t* m_new;
    size_t m_end;
    PatchWriter* m_writer;
    std::vector<LongMatch>::const_iterator m_known;  // the first that may be of use

    size_t m_position;         // all before it are written or in the gap
    std::vector<Match> m_gap;  // for each of its bytes, the longest known match from there on

    // For each place in the gap, the least cost of what is before it.
    std::vector<uint32_t> m_literal;   // when a literal ends there
    std::vector<uint32_t> m_copy;      // when a copy ends there
    std::vector<uint32_t> m_copyFrom;  // where that copy begins
};

// The rest of a known long match that holds this position.
Match Planner::KnownAt(size_t position) {
    const auto end = m_sources.matches.end();
    while (m_known != end && m_known->End() <= position) ++m_known;
    if (m_known == end || m_known->begin > position) return {};
    const size_t passed = position - m_known->begin;
    return {static_cast<uint32_t>(m_known->offset + passed),
            static_cast<uint32_t>(std::min(m_known->End(), m_end) - position)};
}

void Planner::Run() {
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

void Planner::AddToGap(Match match) {
    m_gap.push_back(match);
    ++m_position;
    ExtendBack(m_gap.size() - 1);
}

// The match from this place of the gap may begin before it: the filter passes over bytes, and the
// index has every other one.
void Planner::ExtendBack(size_t place) {
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

void Planner::CloseGap() {
    const size_t size = m_gap.size();
    if (size == 0) return;

    // A copy that is too short for the filter pays when it is the whole gap.
    for (size_t i = 0; i < 2 && size >= kLiteralCost; ++i) {
        if (m_gap[i].length > 0) continue;
        m_gap[i] = Longest(m_position - size + i);
        ExtendBack(i);
    }

    // More bytes never cost less, so the best copy up to a byte is the one that begins earliest.
    m_literal.resize(size + 1);
    m_copy.resize(size + 1);
    m_copyFrom.resize(size + 1);
    m_literal[0] = m_writer->InLiteral() ? 0 : kImpossible;
    m_copy[0] = m_writer->InLiteral() ? kImpossible : 0;
    size_t from = 0;
    for (size_t end = 1; end <= size; ++end) {
        m_literal[end] = std::min(m_literal[end - 1], m_copy[end - 1] + kLiteralCost) + 1;
        while (from < end && from + m_gap[from].length < end) ++from;
        m_copy[end] =
            from < end ? std::min(m_literal[from], m_copy[from]) + kCopyCost : kImpossible;
        m_copyFrom[end] = static_cast<uint32_t>(from);
    }

    std::vector<std::pair<bool, size_t>>
        commands;  // whether it is a copy, and its begin; last first
    bool isCopy = m_copy[size] <= m_literal[size];
    for (size_t end = size; end > 0; end = commands.back().second) {
        const size_t begin = isCopy ? m_copyFrom[end] : end - 1;
        commands.emplace_back(isCopy, begin);
        isCopy = isCopy ? m_copy[begin] <= m_literal[begin]
                        : m_copy[begin] + kLiteralCost < m_literal[begin];
    }
    for (; !commands.empty(); commands.pop_back()) {
        const auto [copies, begin] = commands.back();
        const size_t end = commands.size() > 1 ? commands.end()[-2].second : size;
        const auto length = static_cast<uint32_t>(end - begin);
        if (copies) {
            m_writer->Copy(m_gap[begin].offset, length);
        } else {
            m_writer->Literal(length);
        }
    }
    m_gap.clear();
}

}  // namespace

void PlanStretch(const DeltaSources& sources, size_t begin, size_t end, PatchWriter* writer) {
    Planner(sources, begin, end, writer).Run();
}
