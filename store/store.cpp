#include "store/store.h"

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <utility>

namespace fs = std::filesystem;

namespace {

// The sequence number that a directory is named by; 0 for any other name.
uint32_t SequenceOf(const std::string& name) {
    uint32_t sequence = 0;
    std::from_chars(name.data(), name.data() + name.size(), sequence);
    return SequenceName(sequence) == name ? sequence : 0;
}

std::shared_ptr<const Release> LoadNumbered(const std::string& directory, uint32_t sequence,
                                            std::string* error) {
    std::shared_ptr<const Release> release = Release::Load(directory, error);
    if (release && release->Sequence() != sequence) {
        *error = directory + ": the manifest is of release " + SequenceName(release->Sequence());
        return nullptr;
    }
    return release;
}

}  // namespace

std::string SequenceName(uint32_t sequence) {
    char name[16];
    snprintf(name, sizeof name, "%06" PRIu32, sequence);
    return name;
}

Store::Store(std::string directory) : m_directory(std::move(directory)) {}

std::unique_ptr<Store> Store::Open(const std::string& directory, std::string* error) {
    std::unique_ptr<Store> store(new Store(directory));
    if (!store->Refresh(error)) return nullptr;
    return store;
}

bool Store::Refresh(std::string* error) {
    const std::string folder = m_directory + "/" + kReleasesFolder;
    std::map<uint32_t, std::shared_ptr<const Release>> present;
    bool good = true;
    std::error_code fault;
    for (fs::directory_iterator entry(folder, fault), end; !fault && entry != end;
         entry.increment(fault)) {
        const uint32_t sequence = SequenceOf(entry->path().filename().string());
        if (sequence == 0) continue;
        const auto known = m_releases.find(sequence);
        auto release = known != m_releases.end()
                           ? known->second
                           : LoadNumbered(entry->path().string(), sequence, error);
        if (release) {
            present.emplace(sequence, std::move(release));
        } else if (fs::exists(entry->path(), fault)) {  // else it was removed meanwhile
            good = false;
        }
    }
    if (fault) {
        *error = folder + ": " + fault.message();
        return false;
    }
    m_releases = std::move(present);
    return good;
}

std::vector<std::shared_ptr<const Release>> Store::Releases() const {
    std::vector<std::shared_ptr<const Release>> releases;
    for (const auto& [sequence, release] : m_releases) releases.push_back(release);
    return releases;
}

std::shared_ptr<const Release> Store::Latest(const std::list<std::string>& components) const {
    for (auto entry = m_releases.rbegin(); entry != m_releases.rend(); ++entry) {
        const Release& release = *entry->second;
        const bool holdsAll =
            std::all_of(components.begin(), components.end(),
                        [&release](const std::string& name) { return release.HasComponent(name); });
        if (holdsAll) return entry->second;
    }
    return nullptr;
}

std::shared_ptr<const Release> Store::Find(const std::string& version) const {
    for (const auto& [sequence, release] : m_releases) {
        if (release->Version() == version) return release;
    }
    return nullptr;
}
