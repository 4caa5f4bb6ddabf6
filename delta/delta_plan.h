// The choice of a patch's commands.
#ifndef HALCYRIX_DELTA_DELTA_PLAN_H
#define HALCYRIX_DELTA_DELTA_PLAN_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "delta/long_matches.h"
#include "delta/match_finder.h"
#include "delta/patch_writer.h"

// Goes through the new contents once. Matches that are known beforehand and others that are long
// become copies at once. The bytes between two such copies, the gap, are covered by literals and
// short copies so that the commands take the fewest bytes: a copy costs the same however long it
// is, so the longest match at each byte is all that needs to be known.
//
// Owns none of its arguments; all must outlive it.
class DeltaPlan {
public:
    DeltaPlan(const std::vector<LongMatch>& matches, MatchFinder* finder, const uint8_t* old,
              const uint8_t* contents, size_t size, PatchWriter* writer);

    // Plans and writes some commands. False when the contents are covered.
    bool Step();

    // Where it stands in the new contents.
    size_t Position() const { return m_position; }

private:
    Match KnownAt(size_t position);
    Match MatchAt(size_t position);
    bool LookAhead(Match* match);
    void AddToGap(Match match);
    void CloseGap();

    MatchFinder* m_finder;
    const uint8_t* m_old;
    const uint8_t* m_new;
    size_t m_size;
    PatchWriter* m_writer;
    std::vector<LongMatch>::const_iterator m_known;  // the first that may be of use
    std::vector<LongMatch>::const_iterator m_knownEnd;

    size_t m_position = 0;     // all before it are written or in the gap
    size_t m_sinceCopy = 0;    // bytes since the last long match, in closed gaps too
    std::vector<Match> m_gap;  // for each of its bytes, the longest known match from there on
};

#endif
