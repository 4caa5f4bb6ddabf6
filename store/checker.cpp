#include "store/checker.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "lib/file_progress.h"
#include "lib/local_file_check.h"
#include "store/store_writer.h"

namespace fs = std::filesystem;

namespace {

class Checker {
public:
    Checker(const std::string& store, WorkObserver* observer, CheckReport* report)
        : m_store(store), m_observer(observer), m_report(report) {}

    void CheckFolderOfReleases() {
        std::vector<fs::path> entries;
        std::string error;
        if (!ListReleases(m_store, &entries, &error)) m_report->problems.push_back(error);
        ReleaseList releases;
        std::vector<std::string> errors(entries.size());
        uint64_t bytes = 0;
        for (const fs::path& entry : entries) {
            releases.push_back(Release::Load(entry.string(), &errors[releases.size()]));
            if (releases.back()) bytes += releases.back()->Bytes();
        }
        m_observer->Begin("checking", bytes);
        for (size_t i = 0; i < entries.size(); ++i) {
            CheckEntry(entries[i], releases[i].get(), errors[i]);
        }
    }

private:
    void Problem(const std::string& path, const std::string& text) {
        m_report->problems.push_back(path + ": " + text);
    }

    // `release` is null, and `error` says why, when there is no good manifest.
    void CheckEntry(const fs::path& entry, const Release* release, const std::string& error) {
        const CheckReport before = *m_report;
        if (release != nullptr) {
            CheckRelease(entry, *release);
        } else {
            m_report->problems.push_back(error);
        }
        if (m_report->problems.size() == before.problems.size()) return;
        if (access(entry.c_str(), F_OK) != 0) {  // it was removed meanwhile
            *m_report = before;
            return;
        }
        m_report->advice.push_back(
            entry.string() + ": copy it again from the original store or a backup, or take it " +
            "back with \"halcyrix-release withdraw " + m_store + " " +
            (release != nullptr ? release->Version() : entry.filename().string()) + "\"");
    }

    void CheckRelease(const fs::path& entry, const Release& release) {
        ++m_report->releases;
        if (SequenceName(release.Sequence()) != entry.filename()) {
            Problem(entry.string(), "does not bear the release's sequence number");
        }
        const auto [place, added] = m_byVersion.emplace(release.Version(), entry.string());
        if (!added) Problem(entry.string(), "has the version of " + place->second);
        if (release.FirstIndex() < m_nextIndex) {
            Problem(entry.string(), "uses file indexes of an earlier release");
        }
        m_nextIndex = std::max(m_nextIndex, release.NextIndex());

        m_known = {release.Directory() + "/" + kManifestFile};
        for (uint32_t index = release.FirstIndex(); index < release.NextIndex(); ++index) {
            CheckFile(release.Stored(index));
        }
        CheckNoOthers(release.Directory());
    }

    void CheckFile(const StoredFile& file) {
        m_known.insert(file.path);
        ++m_report->files;
        m_report->bytes += file.length;
        FileProgress progress(m_observer, file.path, file.length);
        const LocalFileCheck found =
            CheckLocalFile(file.path, file.length, file.checksum, &progress);
        if (!found.opened) {
            Problem(file.path, "is missing or cannot be read");
        } else if (found.result == CHECK_DIFFERS) {
            Problem(file.path, "has " + std::to_string(found.length) + " bytes instead of " +
                                   std::to_string(file.length));
        } else if (found.result == CHECK_BAD) {
            Problem(file.path, "has other contents than were published");
        }
    }

    void CheckNoOthers(const std::string& folder) {
        std::error_code fault;
        for (fs::recursive_directory_iterator entry(folder, fault), end; !fault && entry != end;
             entry.increment(fault)) {
            const bool isFolder = entry->symlink_status(fault).type() == fs::file_type::directory;
            if (!isFolder && !m_known.contains(entry->path().string())) {
                Problem(entry->path().string(), "is not in the manifest");
            }
        }
        if (fault) Problem(folder, fault.message());
    }

    const std::string& m_store;
    WorkObserver* m_observer;
    CheckReport* m_report;
    uint64_t m_nextIndex = 0;
    std::set<std::string> m_known;                   // paths of the release at hand
    std::map<std::string, std::string> m_byVersion;  // the directory of each version
};

}  // namespace

CheckReport CheckStore(const std::string& directory, WorkObserver* observer) {
    CheckReport report;
    Checker(directory, observer, &report).CheckFolderOfReleases();
    Reservation reservation;
    std::string error;
    if (!ReadReservation(directory, &reservation, &error)) report.problems.push_back(error);
    return report;
}
