#include "store/pruner.h"

#include <algorithm>

ReleaseList SupersededReleases(const ReleaseList& releases, size_t keep) {
    ReleaseList superseded;
    for (auto release = releases.begin(); release != releases.end(); ++release) {
        const auto holdsThem = [&release](const auto& newer) {
            return std::ranges::includes(newer->Components(), (*release)->Components());
        };
        const auto successors = std::count_if(release + 1, releases.end(), holdsThem);
        if (static_cast<size_t>(successors) >= keep) superseded.push_back(*release);
    }
    return superseded;
}
