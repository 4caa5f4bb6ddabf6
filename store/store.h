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

#include <chrono>
#include <cstdint>
#include <ctime>
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

// A release that is passed over.
struct DamagedRelease {
    std::string reason;                      // "path: what is wrong"
    std::shared_ptr<const Release> release;  // null when the manifest cannot be read
    size_t faulty = 0;                       // the number of the first bad file, patches last
};

// The published releases, for reading. A release appears and disappears as a whole, so reading
// needs no lock. Releases that were handed out outlive the store; their files last until somebody
// removes them.
//
// A release whose manifest is bad, or of whose files one is missing or of another length, counts as
// damaged and is passed over: Releases(), Latest() and Find() know the others only.
class Store {
public:
    // Null, with the reason in `error`, when the directory is no store.
    static std::unique_ptr<Store> Open(const std::string& directory, std::string* error);

    // Takes up releases that were published since and forgets removed ones. Looks at damaged ones
    // again every second. Costs one system call when there is nothing to do.
    void Refresh();

    // A file of the release could not be read as it was published: looks at its files again.
    void Doubt(const Release& release);

    // What the calls above have found amiss or mended, a line each; everything is told once.
    std::vector<std::string> TakeNews();

    const std::string& Directory() const { return m_directory; }

    // Oldest first.
    std::vector<std::shared_ptr<const Release>> Releases() const;
    // By sequence number.
    const std::map<uint32_t, DamagedRelease>& Damaged() const { return m_damaged; }

    // The newest release that holds all of the components; null when there is none.
    std::shared_ptr<const Release> Latest(const std::list<std::string>& components) const;
    // Null when there is none.
    std::shared_ptr<const Release> Find(const std::string& version) const;

private:
    explicit Store(std::string directory);

    void List(const std::string& folder, bool again);
    void Examine(uint32_t sequence);

    std::string m_directory;
    std::map<uint32_t, std::shared_ptr<const Release>> m_releases;  // by sequence number
    std::map<uint32_t, DamagedRelease> m_damaged;
    std::vector<std::string> m_news;

    std::string m_fault;      // why the releases cannot be listed; empty when they can
    timespec m_folderTime{};  // of the releases folder as it was listed; zero when in doubt
    std::chrono::steady_clock::time_point m_examined;  // the damaged ones, the last time
};

#endif
