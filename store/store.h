// A store: the directory that releases are published into and served from.
//
//   STORE/releases/000007/           one release, by sequence number
//                        manifest    what it holds (store/manifest.h)
//                        files/      the files by name
//                        patches/    the patches by index
//   STORE/incoming.000008/           a release under construction
//   STORE/incoming.removed.000001/   a release that is being deleted
//   STORE/reserved                   the sequence number and index to go on from
//   STORE/lock                       held by whoever publishes
#ifndef HALCYRIX_STORE_STORE_H
#define HALCYRIX_STORE_STORE_H

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "store/release.h"

constexpr char kReleasesFolder[] = "releases";
constexpr char kIncomingPrefix[] = "incoming.";
constexpr char kReservedFile[] = "reserved";
constexpr char kLockFile[] = "lock";

// The name of a release's directory below the releases folder, of six digits.
constexpr uint32_t kMaxSequence = 999999;
std::string SequenceName(uint32_t sequence);

// The published releases, for reading. A release appears and disappears as a whole, so reading
// needs no lock. Releases that were handed out outlive the store; their files last until somebody
// removes them.
class Store {
public:
    // Null, with the reason in `error`, when the directory is no store or a release is damaged.
    static std::unique_ptr<Store> Open(const std::string& directory, std::string* error);

    // Takes up releases that were published since, and forgets removed ones; costs little when
    // there are none. False when something could not be read; every other release is there.
    [[nodiscard]] bool Refresh(std::string* error);

    const std::string& Directory() const { return m_directory; }

    // Oldest first.
    std::vector<std::shared_ptr<const Release>> Releases() const;

    // The newest release that holds all of the components; null when there is none.
    std::shared_ptr<const Release> Latest(const std::list<std::string>& components) const;
    // Null when there is none.
    std::shared_ptr<const Release> Find(const std::string& version) const;

private:
    explicit Store(std::string directory);

    std::string m_directory;
    std::map<uint32_t, std::shared_ptr<const Release>> m_releases;  // by sequence number
};

#endif
