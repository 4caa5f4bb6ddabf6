#include "store/pruner.h"

#include <algorithm>

std::vector<std::shared_ptr<const Release>> SupersededReleases(
    const std::vector<std::shared_ptr<const Release>>& releases, size_t keep) {
    std::vector<std::shared_ptr<const Release>> superseded;
    for (auto release = releases.begin(); release != releases.end(); ++release) {
        const auto components = (*release)->Components();
        const auto holdsThem = [&components](const auto& newer) {
            const auto its = newer->Components();
            return std::includes(its.begin(), its.end(), components.begin(), components.end());
        };
        const auto successors = std::count_if(release + 1, releases.end(), holdsThem);
        if (static_cast<size_t>(successors) >= keep) superseded.push_back(*release);
    }
    return superseded;
}
