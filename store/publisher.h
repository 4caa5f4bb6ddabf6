// The making of a release.
#ifndef HALCYRIX_STORE_PUBLISHER_H
#define HALCYRIX_STORE_PUBLISHER_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "store/manifest.h"
#include "store/release_sources.h"
#include "store/store_writer.h"

struct PublishRequest {
    std::string store;
    std::string version;
    std::vector<ComponentSource> components;
    size_t patchesFrom = 3;  // releases of a file's component that patches are made from
};

// Told while a release is made.
class PublishObserver {
public:
    virtual ~PublishObserver() = default;
    virtual void Warn(const std::string& text) = 0;
    // Work on file `number` of `count` begins.
    virtual void Progress(const char* work, size_t number, size_t count,
                          const std::string& name) = 0;
};

// Publishes one release. The observer is not owned and must outlive it.
class Publisher {
public:
    Publisher(PublishRequest request, PublishObserver* observer);

    // Makes the release current in one step at the end. False, with the reason in `error`, when
    // that cannot be: the releases of the store are then as they were. Call once.
    [[nodiscard]] bool Publish(std::string* error);

    // What was published.
    const Manifest& Result() const { return m_manifest; }

private:
    using Releases = std::vector<std::shared_ptr<const Release>>;

    // A patch of the file at hand, and what it starts from.
    struct MadePatch {
        std::string oldPath;
        std::string patchPath;  // empty when it was not worth keeping
    };

    bool CheckRequest(std::string* error) const;
    bool OpenStore(std::string* error);
    bool StoreFiles(std::string* error);
    bool StoreFile(const ReleaseSource& source, std::string* error);
    bool MakePatches(std::string* error);
    bool MakePatchFrom(const Release& before, const ReleaseFile& file, std::vector<MadePatch>* made,
                       std::string* error);
    bool WriteManifest(std::string* error) const;

    // Releases that hold the component of the file, newest first.
    Releases EarlierReleases(const std::string& name) const;
    // The index of the entry that comes next; false when none is left.
    bool NextIndex(uint32_t* index, std::string* error) const;

    PublishRequest m_request;
    PublishObserver* m_observer;
    ReleaseSources m_sources;
    std::unique_ptr<StoreWriter> m_writer;
    Manifest m_manifest;
};

#endif
