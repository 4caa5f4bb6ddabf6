// Makes a release.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "lib/work_observer.h"
#include "store/grouped_warnings.h"
#include "store/manifest.h"
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

// Publishes one release, in two steps. The observer is not owned and must outlive it.
class Publisher {
public:
    Publisher(PublishRequest request, WorkObserver* observer);

    // Makes the release, not yet visible. False, with all faults in `problems`, when it cannot be
    // made. Unless Commit() follows, the store stays as it was. Call once.
    [[nodiscard]] bool Prepare(std::vector<std::string>* problems);

    // Makes the prepared release visible, in one step.
    [[nodiscard]] bool Commit(std::string* error);

    // The prepared release.
    const Release& Result() const { return *m_release; }
    // The earlier releases, oldest first.
    const Store& Published() const { return m_writer->Published(); }
    // The release without the files that it shares with earlier ones.
    uint64_t DiskBytes() const { return m_diskBytes; }

private:
    // A patch that is to be published. Several may come of one job, when versions had the same
    // file.
    struct PlannedPatch {
        std::string name;
        std::string fromVersion;
        size_t job;
    };

    void CheckRequest(std::vector<std::string>* problems);
    void CheckAgainstStore(std::vector<std::string>* problems);
    void CheckUpdater(std::vector<std::string>* problems);
    // The latest release when it has the same files; else null.
    std::shared_ptr<const Release> SameRelease() const;
    bool Begin(std::string* error);
    bool StoreFiles(std::string* error);
    bool StoreFile(const ReleaseSource& source, std::string* error);
    void PlanPatches(const ReleaseFile& file);
    bool MakePatches(std::string* error);
    bool NamePatches(std::string* error);
    bool Finish(std::string* error);

    // The index of the next entry. False when none is left.
    bool NextIndex(uint32_t* index, std::string* error) const;

    PublishRequest m_request;
    WorkObserver* m_observer;
    ReleaseSources m_sources;
    std::unique_ptr<StoreWriter> m_writer;
    Manifest m_manifest;
    std::vector<PatchJob> m_jobs;
    std::vector<PlannedPatch> m_planned;  // in the manifest's order
    uint64_t m_diskBytes = 0;
    std::shared_ptr<const Release> m_release;
};
