// The choice of a patch's commands.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "delta/long_matches.h"
#include "delta/match_finder.h"
#include "delta/patch_writer.h"

// What a plan is made from. Nothing is owned.
struct DeltaSources {
    const uint8_t* old;
    const uint8_t* contents;  // the new ones
    const std::vector<LongMatch>& matches;
    const MatchFinder& finder;  // of everything if there are no long matches
};

// Adds the commands that make the new contents from `begin` to `end`. Several threads may plan from
// the same sources.
//
// The known long matches, and others of 32 bytes or more, become copies. The bytes between two such
// copies, the gap, are covered by literals and short copies so that the commands take the fewest
// bytes. A copy costs the same at any length, so only the longest match at each byte matters.
void PlanStretch(const DeltaSources& sources, size_t begin, size_t end, PatchWriter* writer);
