#include "delta/delta_plan.h"

#include <algorithm>

#include "lib/patch_format.h"

namespace {

// A match of this length is a copy whatever its neighbours are: as a literal it would cost more
// than the copy and the literal headers that it saves.
constexpr uint32_t kSureMatch = 32;

// A copy between two stretches of literal: the copy and the header of the second one.
constexpr uint32_t kCopyCost = kPatchCopySize;
constexpr uint32_t kLiteralCost = kPatchLiteralHeaderSize;

// So many bytes after a long match every byte is searched for; a copy of a few bytes pays there
// when it saves a whole literal. Further on only what the filter lets through is, and everywhere
// once there are so many commands that such copies will be dropped again.
constexpr size_t kSearchedFully = 64;

// A gap is closed at this size, to bound the memory of its plan.
constexpr size_t kMaxGap = 65536;

// Matches longer than this are not put off for the sake of a longer one that begins later.
constexpr uint32_t kLongEnough = 4096;

constexpr uint32_t kImpossible = UINT32_MAX / 2;

}  // namespace

DeltaPlan::DeltaPlan(const std::vector<LongMatch>& matches, MatchFinder* finder, const uint8_t* old,
                     const uint8_t* contents, size_t size, PatchWriter* writer)
    : m_finder(finder),
      m_old(old),
      m_new(contents),
      m_size(size),
      m_writer(writer),
      m_known(matches.begin()),
      m_knownEnd(matches.end()) {}

// What the long matches leave of themselves from a position on, if it is in one.
Match DeltaPlan::KnownAt(size_t position) {
    while (m_known != m_knownEnd && m_known->End() <= position) ++m_known;
    if (m_known == m_knownEnd || m_known->begin > position) return {};
    const size_t passed = position - m_known->begin;
    return {static_cast<uint32_t>(m_known->offset + passed),
            static_cast<uint32_t>(m_known->length - passed)};
}

Match DeltaPlan::MatchAt(size_t position) {
    if (const Match known = KnownAt(position); known.length > 0) return known;
    const uint8_t* text = m_new + position;
    const size_t remaining = m_size - position;
    if (m_sinceCopy > kSearchedFully || m_writer->Commands() > kMaxCommands) {
        if (remaining < kWindow || !m_finder->MayMatch(text)) return {};
    }
    return m_finder->Longest(text, remaining);
}

bool DeltaPlan::Step() {
    while (m_position < m_size) {
        Match match = MatchAt(m_position);
        if (match.length < kSureMatch) {
            AddToGap(match);
            if (m_gap.size() < kMaxGap) continue;
            CloseGap();
            return true;
        }
        while (LookAhead(&match)) continue;

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
        m_sinceCopy = 0;
        return true;
    }
    CloseGap();
    return false;
}

// Whether a match that begins within the next few bytes reaches so much further that `match` is
// better left to the plan of the gap. Moves there if so.
bool DeltaPlan::LookAhead(Match* match) {
    if (match->length >= kLongEnough || m_writer->Commands() > kMaxCommands) return false;
    const size_t reach = m_position + match->length;
    Match passed[kCopyCost] = {*match};
    for (size_t ahead = 1; ahead < kCopyCost && m_position + ahead < m_size; ++ahead) {
        const size_t position = m_position + ahead;
        Match later = KnownAt(position);
        if (later.length == 0) later = m_finder->Longest(m_new + position, m_size - position);
        if (position + later.length >= reach + kSureMatch) {
            for (size_t i = 0; i < ahead; ++i) AddToGap(passed[i]);
            *match = later;
            return true;
        }
        passed[ahead] = later;
    }
    return false;
}

void DeltaPlan::AddToGap(Match match) {
    m_gap.push_back(match);
    // The same match may reach further back, over bytes that the filter passed over.
    for (size_t i = m_gap.size() - 1; i > 0 && match.length > 0 && match.offset > 0; --i) {
        const size_t position = m_position - (m_gap.size() - i);
        if (m_old[match.offset - 1] != m_new[position]) break;
        --match.offset;
        ++match.length;
        if (match.length <= m_gap[i - 1].length) break;
        m_gap[i - 1] = match;
    }
    ++m_position;
    ++m_sinceCopy;
}

void DeltaPlan::CloseGap() {
    const size_t size = m_gap.size();
    if (size == 0) return;

    // What the first bytes of the gap cost at least, when their last command is a literal or a
    // copy. More bytes never cost less, so the best copy up to a byte is the one that begins
    // earliest.
    std::vector<uint32_t> literal(size + 1);
    std::vector<uint32_t> copy(size + 1);
    std::vector<uint32_t> copyFrom(size + 1);
    literal[0] = m_writer->InLiteral() ? 0 : kImpossible;
    copy[0] = m_writer->InLiteral() ? kImpossible : 0;
    size_t from = 0;
    for (size_t end = 1; end <= size; ++end) {
        literal[end] = std::min(literal[end - 1], copy[end - 1] + kLiteralCost) + 1;
        while (from < end && from + m_gap[from].length < end) ++from;
        copy[end] = from < end ? std::min(literal[from], copy[from]) + kCopyCost : kImpossible;
        copyFrom[end] = static_cast<uint32_t>(from);
    }

    struct Command {
        bool isCopy;
        size_t begin;
        size_t end;
    };
    std::vector<Command> commands;  // last first
    bool isCopy = copy[size] <= literal[size];
    for (size_t end = size; end > 0;) {
        const size_t begin = isCopy ? copyFrom[end] : end - 1;
        commands.push_back({isCopy, begin, end});
        isCopy =
            isCopy ? copy[begin] <= literal[begin] : copy[begin] + kLiteralCost < literal[begin];
        end = begin;
    }
    for (auto command = commands.rbegin(); command != commands.rend(); ++command) {
        const auto length = static_cast<uint32_t>(command->end - command->begin);
        if (command->isCopy) {
            m_writer->Copy(m_gap[command->begin].offset, length);
        } else {
            m_writer->Literal(length);
        }
    }
    m_gap.clear();
}
