// What players will get with a release.
#ifndef HALCYRIX_STORE_FORECAST_H
#define HALCYRIX_STORE_FORECAST_H

#include <cstddef>
#include <cstdint>

#include "store/release.h"

// What an update from one version to another takes, for somebody who has all that the components
// of both held then.
struct UpdateForecast {
    bool sharesComponents = false;  // else nobody updates so
    size_t changed = 0;
    size_t added = 0;
    size_t removed = 0;         // they stay on the player's disk
    uint64_t wholeBytes = 0;    // of the changed and added files
    uint64_t patchedBytes = 0;  // the same, with patches in place of the files that have one
};
UpdateForecast ForecastUpdate(const Release& from, const Release& to);

#endif
