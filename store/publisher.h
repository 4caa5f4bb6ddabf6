// Makes a release.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "lib/work_observer.h"
#include "store/patch_jobs.h"
#include "store/release_sources.h"
#include "store/store_writer.h"

struct PublishRequest {
    std::string store;
    std::string version;
    std::vector<ComponentSource> components;
    size_t patchesFrom = 3;      // releases of a file's component that patches are made from
    bool newComponents = false;  // allow components that no earlier release has
    bool anyUpdater = false;     // allow an update.rlb that is no updater
    bool allowEmpty = false;     // allow a release without a change
    PatchLimits limits{};
};

// A release that is made and not yet visible. Unless Commit() follows, its end leaves the store as
// it was.
struct PreparedRelease {
    // Makes the release visible, in one step.
    [[nodiscard]] bool Commit(std::string* error);

    std::unique_ptr<StoreWriter> writer;
    std::shared_ptr<const Release> release;
    uint64_t diskBytes = 0;  // of it, without the files that it shares with earlier ones
};

// Makes a release. False, with all faults in `problems`, when it cannot be made.
[[nodiscard]] bool PrepareRelease(const PublishRequest& request, WorkObserver* observer,
                                  PreparedRelease* made, std::vector<std::string>* problems);
