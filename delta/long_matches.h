// The search for what two files that are mostly the same have in common.
//
// Blocks of the old contents are kept in a table, each by a hash; a block of the new contents that
// is found there is the middle of a match, which is extended to both sides: J. Bentley and
// D. McIlroy, "Data Compression Using Long Common Strings" (1999). What that leaves is small, and
// suffixes need to be sorted only where the rest of the edits are: near the gaps between the
// matches, and where no match is.
#pragma once

#include <cstddef>
#include <vector>

#include "lib/whole_file.h"

// A stretch of the new contents and where it stands in the old ones.
struct LongMatch {
    size_t begin;
    size_t offset;
    size_t length;
    size_t End() const { return begin + length; }
};

// Long matches in the order of the new contents, apart from one another, when they cover nearly all
// of them; else none. Takes up to half a byte of memory for each byte of the old contents, and as
// much again for the new ones.
std::vector<LongMatch> LongMatches(const MappedFile& from, MappedFile* to);
