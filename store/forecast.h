// The forecast of what players download for a release.
#pragma once

#include <cstddef>
#include <cstdint>

#include "store/release.h"

// An update from one version to another, of the components that both have.
struct UpdateForecast {
    bool sharesComponents = false;  // if not, no player updates from the one to the other
    size_t changed = 0;
    size_t added = 0;
    size_t removed = 0;         // these files stay on the player's disk
    uint64_t wholeBytes = 0;    // of the changed and added files
    uint64_t patchedBytes = 0;  // the same, but of the patch where there is one
};
UpdateForecast ForecastUpdate(const Release& from, const Release& to);
