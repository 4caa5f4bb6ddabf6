// Chooses the releases that pruning removes.
#pragma once

#include <cstddef>

#include "store/release.h"

// A release is superseded when at least `keep` later ones have all of its components. Takes the
// releases oldest first. With a `keep` of 1 or more, the newest release with any set of components
// is never superseded, so clients are given the same as before.
ReleaseList SupersededReleases(const ReleaseList& releases, size_t keep);
