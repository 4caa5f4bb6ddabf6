// The choice of releases that a store can do without.
#ifndef HALCYRIX_STORE_PRUNER_H
#define HALCYRIX_STORE_PRUNER_H

#include <cstddef>
#include <memory>
#include <vector>

#include "store/release.h"

// Of the releases, given oldest first, those after which came `keep` others with all of their
// components. With a `keep` of at least 1, the newest release for any set of components is never
// among them: what clients are given stays the same.
std::vector<std::shared_ptr<const Release>> SupersededReleases(
    const std::vector<std::shared_ptr<const Release>>& releases, size_t keep);

#endif
