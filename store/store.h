// A store: the directory that releases are published into and served from.
//
//   STORE/releases/000007/           a release, named by its sequence number
//                        manifest    the list of its contents (store/manifest.h)
//                        files/      the files by name
//                        patches/    the patches by index
//   STORE/incoming.000008/           a release under construction
//   STORE/incoming.removed.000001/   a release that is being deleted
//   STORE/reserved                   the next sequence number and index
//   STORE/lock                       locked by the process that writes
#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "store/release.h"

constexpr char kReleasesFolder[] = "releases";
constexpr char kIncomingPrefix[] = "incoming.";
constexpr char kReservedFile[] = "reserved";
constexpr char kLockFile[] = "lock";

// The name of a release's directory below the releases folder, of six digits.
constexpr uint32_t kMaxSequence = 999999;
std::string SequenceName(uint32_t sequence);

// Lists the folder of a store's releases, sorted. False, with the reason in `error`, when it cannot
// be read, as in a directory that is no store.
[[nodiscard]] bool ListReleases(const std::string& store,
                                std::vector<std::filesystem::path>* entries, std::string* error);

// A release that is not served, since a file of it is bad.
struct DamagedRelease {
    std::string reason;                      // "path: what is wrong"
    std::shared_ptr<const Release> release;  // null when the manifest cannot be read
    uint32_t faulty = 0;                     // the index of the first bad file
};

// The published releases, for reading. A release appears and disappears in one step, so reading
// needs no lock. Releases that were handed out outlive the store, but not always their files.
//
// A release is damaged when its manifest is bad, or when a file is missing or has another length.
// Releases(), Latest() and Find() know only the others.
class Store {
public:
    // Null, with the reason in `error`, when the directory is no store.
    static std::unique_ptr<Store> Open(const std::string& directory, std::string* error);

    // Adds new releases and forgets removed ones. Looks at the bad file of each damaged one again
    // every second. Makes one system call when nothing has changed.
    void Refresh();

    // Looks at the files of a release again, after one of them could not be read.
    void Doubt(const Release& release);

    // Returns a line for each release that was found damaged or whole again since the last call.
    std::vector<std::string> TakeNews() { return std::exchange(m_news, {}); }

    const std::string& Directory() const { return m_directory; }

    // Oldest first.
    ReleaseList Releases() const;
    // By sequence number.
    const std::map<uint32_t, DamagedRelease>& Damaged() const { return m_damaged; }

    // The newest release that holds all of the components; null when there is none.
    std::shared_ptr<const Release> Latest(const std::list<std::string>& components) const;
    // Null when there is none.
    std::shared_ptr<const Release> Find(const std::string& version) const;

private:
    explicit Store(std::string directory) : m_directory(std::move(directory)) {}

    void List(bool again);
    void Examine(uint32_t sequence);

    std::string m_directory;
    std::map<uint32_t, std::shared_ptr<const Release>> m_releases;  // by sequence number
    std::map<uint32_t, DamagedRelease> m_damaged;
    std::vector<std::string> m_news;

    std::string m_fault;      // why the releases cannot be listed, or empty
    timespec m_folderTime{};  // of the releases folder when it was listed; zero to list it again
    std::chrono::steady_clock::time_point m_examined;  // when the damaged ones were, the last time
};
