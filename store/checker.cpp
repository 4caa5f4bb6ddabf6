#include "store/checker.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "lib/file_helpers.h"
#include "lib/file_progress.h"
#include "lib/local_file_check.h"
#include "store/folder.h"
#include "store/store_writer.h"

namespace fs = std::filesystem;

namespace {

class Checker {
public:
    Checker(const std::string& store, WorkObserver* observer, CheckReport* report)
        : m_store(store), m_observer(observer), m_report(report) {}

    void CheckFolderOfReleases();

private:
    void Problem(const std::string& path, const std::string& text) {
        m_report->problems.push_back(path + ": " + text);
    }

    void CheckRelease(const fs::path& entry, const Release& release);
    void CheckFile(const std::string& path, uint32_t length, uint32_t checksum);
    void CheckNoOthers(const std::string& folder);

    const std::string& m_store;
    WorkObserver* m_observer;
    CheckReport* m_report;
    uint64_t m_nextIndex = 0;
    std::set<std::string> m_known;                   // paths of the release at hand
    std::map<std::string, std::string> m_byVersion;  // the directory of each version
};

void Checker::CheckFolderOfReleases() {
    std::vector<fs::path> entries;
    std::string error;
    if (!ListReleases(m_store, &entries, &error)) m_report->problems.push_back(error);
    std::vector<std::shared_ptr<const Release>> releases;
    std::vector<std::string> errors(entries.size());
    uint64_t bytes = 0;
    for (const fs::path& entry : entries) {
        releases.push_back(Release::Load(entry.string(), &errors[releases.size()]));
        if (const auto& release = releases.back()) {
            bytes += BytesOf(release->Files()) + BytesOf(release->Patches());
        }
    }
    m_observer->Begin("checking", bytes);

    for (size_t i = 0; i < entries.size(); ++i) {
        const fs::path& entry = entries[i];
        const auto& release = releases[i];
        const CheckReport before = *m_report;
        if (release) {
            CheckRelease(entry, *release);
        } else {
            m_report->problems.push_back(errors[i]);
        }
        if (m_report->problems.size() == before.problems.size()) continue;
        if (access(entry.c_str(), F_OK) != 0) {  // it was removed meanwhile
            *m_report = before;
            continue;
        }
        m_report->advice.push_back(
            entry.string() + ": copy it again from the original store or a backup, or take it " +
            "back with \"halcyrix-release withdraw " + m_store + " " +
            (release ? release->Version() : entry.filename().string()) + "\"");
    }
}

void Checker::CheckRelease(const fs::path& entry, const Release& release) {
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
    for (const ReleaseFile& file : release.Files()) {
        CheckFile(release.FilePath(file), file.length, file.checksum);
    }
    for (const ReleasePatch& patch : release.Patches()) {
        CheckFile(release.PatchPath(patch), patch.length, patch.checksum);
    }
    CheckNoOthers(release.Directory());
}

void Checker::CheckFile(const std::string& path, uint32_t length, uint32_t checksum) {
    m_known.insert(path);
    ++m_report->files;
    m_report->bytes += length;
    FileProgress progress(m_observer, path, length);
    const LocalFileCheck found = CheckLocalFile(path, length, checksum, &progress);
    if (!found.opened) {
        Problem(path, "is missing or cannot be read");
    } else if (found.result == CHECK_DIFFERS) {
        Problem(path, "has " + std::to_string(found.length) + " bytes instead of " +
                          std::to_string(length));
    } else if (found.result == CHECK_BAD) {
        Problem(path, "has other contents than were published");
    }
}

void Checker::CheckNoOthers(const std::string& folder) {
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

}  // namespace

CheckReport CheckStore(const std::string& directory, WorkObserver* observer) {
    CheckReport report;
    Checker(directory, observer, &report).CheckFolderOfReleases();
    Reservation reservation;
    std::string error;
    if (!ReadReservation(directory, &reservation, &error)) report.problems.push_back(error);
    return report;
}
