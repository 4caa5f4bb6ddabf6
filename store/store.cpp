#include "store/store.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <set>
#include <utility>

#include "lib/failure.h"
#include "store/folder.h"

namespace {

// The sequence number that a directory is named by; 0 for any other name.
uint32_t SequenceOf(const std::string& name) {
    uint32_t sequence = 0;
    std::from_chars(name.data(), name.data() + name.size(), sequence);
    return SequenceName(sequence) == name ? sequence : 0;
}

// How often damaged releases are looked at. Copies may be repaired while they are served.
constexpr std::chrono::seconds kLookAgain{1};

// The fault of a file that should have this length, or an empty string.
std::string FileFault(const std::string& path, uint32_t length) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) return SystemError(path);
    const bool forAll = (~status.st_mode & 0444) == 0;  // most are, which saves a call for each
    if (!forAll && access(path.c_str(), R_OK) != 0) return SystemError(path);
    if (S_ISREG(status.st_mode) && status.st_size == length) return {};
    return path + ": has " + std::to_string(status.st_size) + " bytes instead of " +
           std::to_string(length);
}

// Looks for the next bad file from index `faulty` on, without reading the contents. True, with
// index and reason set, when there is one.
bool FindFault(DamagedRelease* damaged) {
    const Release& release = *damaged->release;
    damaged->faulty = std::max(damaged->faulty, release.FirstIndex());
    for (; damaged->faulty < release.NextIndex(); ++damaged->faulty) {
        const StoredFile file = release.Stored(damaged->faulty);
        damaged->reason = FileFault(file.path, file.length);
        if (!damaged->reason.empty()) return true;
    }
    return false;
}

}  // namespace

std::string SequenceName(uint32_t sequence) {
    char name[16];
    snprintf(name, sizeof name, "%06" PRIu32, sequence);
    return name;
}

bool ListReleases(const std::string& store, std::vector<std::filesystem::path>* entries,
                  std::string* error) {
    const std::string folder = store + "/" + kReleasesFolder;
    if (access(folder.c_str(), F_OK) == 0) return ListFolder(folder, entries, error);
    return Fail(error, store + " is no store; \"halcyrix-release publish\" makes one (" +
                           SystemError(folder) + ")");
}

std::unique_ptr<Store> Store::Open(const std::string& directory, std::string* error) {
    std::unique_ptr<Store> store(new Store(directory));
    store->Refresh();
    if (!store->m_fault.empty()) return Fail(error, store->m_fault);
    return store;
}

void Store::Refresh() {
    const std::string folder = m_directory + "/" + kReleasesFolder;
    struct stat status = {};
    const bool found = stat(folder.c_str(), &status) == 0;
    const bool again =
        !m_damaged.empty() && std::chrono::steady_clock::now() - m_examined >= kLookAgain;
    const bool same = found && status.st_mtim.tv_sec == m_folderTime.tv_sec &&
                      status.st_mtim.tv_nsec == m_folderTime.tv_nsec;
    if (same && !again) return;
    // Two changes within one tick of the system's clock have the same time.
    const bool settled = found && status.st_mtim.tv_sec + 1 < time(nullptr);
    m_folderTime = settled ? status.st_mtim : timespec{};
    List(again);
    if (again) m_examined = std::chrono::steady_clock::now();
}

// Examines the new releases, and with `again` the damaged ones.
void Store::List(bool again) {
    std::set<uint32_t> present;
    std::vector<std::filesystem::path> entries;
    const std::string told = std::exchange(m_fault, {});
    if (!ListReleases(m_directory, &entries, &m_fault)) {
        m_folderTime = {};
        if (m_fault != told) m_news.push_back(m_fault);
        return;
    }
    for (const auto& entry : entries) {
        const uint32_t sequence = SequenceOf(entry.filename().string());
        if (sequence != 0) present.insert(sequence);
    }
    const auto gone = [&present](const auto& entry) { return !present.contains(entry.first); };
    std::erase_if(m_releases, gone);
    std::erase_if(m_damaged, gone);
    for (const uint32_t sequence : present) {
        if (m_releases.contains(sequence)) continue;
        const auto damaged = m_damaged.find(sequence);
        if (damaged == m_damaged.end() ||
            (again && (!damaged->second.release || !FindFault(&damaged->second)))) {
            Examine(sequence);
        }
    }
}

// Looks at all files of a release, and keeps it among the good or the damaged ones.
void Store::Examine(uint32_t sequence) {
    const std::string name = SequenceName(sequence);
    const std::string directory = m_directory + "/" + kReleasesFolder + "/" + name;
    DamagedRelease found;
    found.release = Release::Load(directory, &found.reason);
    if (found.release && found.release->Sequence() != sequence) {
        found.reason =
            directory + ": the manifest is of release " + SequenceName(found.release->Sequence());
        found.release.reset();
    }
    const bool good = found.release && !FindFault(&found);
    if (access(directory.c_str(), F_OK) != 0) return;  // it was removed meanwhile
    m_releases.erase(sequence);
    if (good) {
        if (m_damaged.erase(sequence) != 0) m_news.push_back("release " + name + " is whole again");
        m_releases.emplace(sequence, std::move(found.release));
        return;
    }
    if (!m_damaged.contains(sequence)) {
        m_news.push_back("release " + name + " is damaged and passed over: " + found.reason);
    }
    m_damaged[sequence] = std::move(found);
}

void Store::Doubt(const Release& release) {
    const auto known = m_releases.find(release.Sequence());
    if (known != m_releases.end() && known->second.get() == &release) Examine(release.Sequence());
}

ReleaseList Store::Releases() const {
    ReleaseList releases;
    releases.reserve(m_releases.size());
    for (const auto& [sequence, release] : m_releases) releases.push_back(release);
    return releases;
}

std::shared_ptr<const Release> Store::Latest(const std::list<std::string>& components) const {
    for (auto entry = m_releases.rbegin(); entry != m_releases.rend(); ++entry) {
        const auto& release = entry->second;
        const auto held = [&](const std::string& name) { return release->HasComponent(name); };
        if (std::ranges::all_of(components, held)) return release;
    }
    return nullptr;
}

std::shared_ptr<const Release> Store::Find(const std::string& version) const {
    for (const auto& [sequence, release] : m_releases) {
        if (release->Version() == version) return release;
    }
    return nullptr;
}
