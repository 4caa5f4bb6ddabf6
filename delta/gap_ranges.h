// Where in the old contents to look for what long matches leave.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "delta/long_matches.h"
#include "delta/match_finder.h"

// The ranges of the old contents, in order and apart, that stand beside gaps between the matches,
// or hold a few bytes that stand in a gap as well. None when they would be a good part of the
// contents, or when there are no matches. Takes some ten bytes of memory for each in a gap.
std::vector<Range> GapRanges(const std::vector<LongMatch>& matches, const uint8_t* old,
                             size_t oldSize, const uint8_t* contents, size_t size);
