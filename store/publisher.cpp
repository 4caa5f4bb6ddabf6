#include "store/publisher.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "lib/checksum.h"
#include "lib/stream.h"
#include "lib/whole_file.h"
#include "store/folder.h"
#include "store/names.h"
#include "store/updater_program.h"

namespace fs = std::filesystem;

namespace {

fs::path Canonical(const std::string& path) {
    std::error_code ignored;
    return fs::weakly_canonical(fs::absolute(path, ignored), ignored);
}

// Reads a file for its length and checksum. False when any byte cannot be read.
template <class Entry>
bool Measure(const std::string& path, Entry* entry, WorkObserver* observer, std::string* error) {
    Stream file = OpenForReading(path);
    uint32_t checksum = kFileChecksumStart;
    uint64_t length = 0;
    if (file) {
        SetBuffer(&file, size_t{1} << 17);
        uint8_t piece[kFilePiece];
        while (const size_t got = fread(piece, 1, sizeof piece, file.get())) {
            checksum = Checksum(piece, static_cast<uint32_t>(got), checksum);
            length += got;
            observer->Done(got);
        }
    }
    const bool measured = file && !ferror(file.get());
    if (!measured) *error = SystemError(path);
    entry->checksum = RealChecksum(checksum);
    entry->length = static_cast<uint32_t>(length);
    return measured;
}

bool IsReadableByAll(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && (~status.st_mode & 0444) == 0;
}

bool MakeParents(const std::string& path, std::string* error) {
    std::error_code fault;
    const fs::path parent = fs::path(path).parent_path();
    fs::create_directories(parent, fault);
    return !fault || Fail(error, parent.string() + ": " + fault.message());
}

class Publisher {
public:
    Publisher(const PublishRequest& request, WorkObserver* observer, PreparedRelease* made)
        : m_request(request), m_observer(observer), m_made(made) {}

    bool Prepare(std::vector<std::string>* problems) {
        std::string error;
        m_made->writer = StoreWriter::OpenOrMake(m_request.store, &error);
        if (!m_made->writer) problems->push_back(error);
        CheckRequest(problems);
        if (m_made->writer) CheckAgainstStore(problems);
        m_sources.Scan(m_request.components, problems, m_observer);
        CheckUpdater(problems);
        if (!problems->empty()) return false;

        const auto [sequence, index] = m_made->writer->Next();
        m_manifest = {sequence, m_request.version, index, {}, {}, {}};
        for (const ComponentSource& component : m_request.components) {
            m_manifest.components.push_back(component.component);
        }
        std::ranges::sort(m_manifest.components);
        bool stored = m_made->writer->Begin(&error) && StoreFiles(&error);
        if (const auto same = stored ? SameRelease() : nullptr; same && !m_request.allowEmpty) {
            error = m_request.store + ": nothing has changed since version " + same->Version() +
                    "; --allow-empty publishes it all the same";
            stored = false;
        }
        if (stored && MakePatches(&error)) {
            *problems = m_sources.Changes();
            if (problems->empty() && Finish(&error)) return true;
        }
        if (!error.empty()) problems->push_back(error);
        return false;
    }

private:
    // A patch that is to be published. Several may come of one job, when versions had the same
    // file.
    struct PlannedPatch {
        std::string name;
        std::string fromVersion;
        size_t job;
    };

    const Store& Published() const { return m_made->writer->Published(); }

    void CheckRequest(std::vector<std::string>* problems) {
        const std::string fault = VersionFault(m_request.version);
        if (!fault.empty()) problems->push_back("version \"" + m_request.version + "\" " + fault);
        for (const ComponentSource& component : m_request.components) {
            if (!IsBelow(Canonical(m_request.store), Canonical(component.directory))) continue;
            problems->push_back(component.directory + ": holds the store itself");
        }
    }

    void CheckAgainstStore(std::vector<std::string>* problems) {
        ReleaseList known = Published().Releases();
        for (const auto& [sequence, damaged] : Published().Damaged()) {
            m_observer->Warn("release " + SequenceName(sequence) +
                             " is damaged and passed over: " + damaged.reason);
            if (damaged.release) known.push_back(damaged.release);
        }
        const auto isKnown = [&known](const auto& property) {
            return std::ranges::any_of(known, property);
        };
        if (isKnown(
                [this](const auto& release) { return release->Version() == m_request.version; })) {
            problems->push_back(m_request.store + ": version " + m_request.version +
                                " is published already");
        }
        const bool isFirst = known.empty() && Published().Damaged().empty();
        for (const ComponentSource& source : m_request.components) {
            const bool isOld = isKnown(
                [&source](const auto& release) { return release->HasComponent(source.component); });
            if (isOld || isFirst || m_request.newComponents) continue;
            problems->push_back("component \"" + source.component +
                                "\" is in no earlier release; --new-component allows it");
        }
    }

    // Players run whatever is published as the updater. They could not update from another program.
    void CheckUpdater(std::vector<std::string>* problems) {
        const std::string name = std::string(kUpdaterComponent) + "/" + kUpdaterProgram;
        const auto& files = m_sources.Files();
        const auto source = std::ranges::find(files, name, &ReleaseSource::name);
        if (source == files.end()) return;
        std::string fault;
        const auto now = ReadUpdaterProgram(source->path, &fault);
        if (!now && !m_request.anyUpdater) {
            problems->push_back(source->path +
                                " is no updater; --any-updater publishes it all the same (" +
                                fault + ")");
        }
        const auto latest = m_made->writer ? Published().Latest({kUpdaterComponent}) : nullptr;
        const ReleaseFile* old = latest ? latest->FindFile(name) : nullptr;
        if (!now || old == nullptr) return;
        const auto before = ReadUpdaterProgram(latest->FilePath(*old), &fault);
        if (!before) return;
        std::set<std::string> beside;
        for (const ReleaseSource& file : files) {
            if (ComponentOf(file.name) != kUpdaterComponent) continue;
            beside.insert(fs::path(file.name).filename().string());
        }
        CompareUpdaters(*before, *now, beside, m_observer);
    }

    std::shared_ptr<const Release> SameRelease() const {
        const auto& components = m_manifest.components;
        auto latest = Published().Latest({components.begin(), components.end()});
        if (!latest) return nullptr;
        size_t files = 0;
        for (const std::string& component : components) files += latest->Files(component).size();
        const auto isOld = [&latest](const ReleaseFile& file) {
            const ReleaseFile* old = latest->FindFile(file.name);
            return old != nullptr && file.HasContentsOf(*old);
        };
        const bool same =
            files == m_manifest.files.size() && std::ranges::all_of(m_manifest.files, isOld);
        return same ? latest : nullptr;
    }

    bool NextIndex(uint32_t* index, std::string* error) const {
        const uint64_t next = m_manifest.NextIndex();
        if (next >= kIndexLimit) return Fail(error, m_request.store + ": no file index is left");
        *index = static_cast<uint32_t>(next);
        return true;
    }

    bool StoreFiles(std::string* error) {
        uint64_t bytes = 0;
        for (const ReleaseSource& source : m_sources.Files()) {
            bytes += static_cast<uint64_t>(source.status.st_size);
        }
        m_observer->Begin("storing", bytes);
        for (const ReleaseSource& source : m_sources.Files()) {
            m_observer->File(source.name);
            if (!StoreFile(source, error)) return false;
        }
        return true;
    }

    bool StoreFile(const ReleaseSource& source, std::string* error) {
        ReleaseFile file{source.name, 0, 0, 0};
        if (!NextIndex(&file.index, error)) return false;
        const std::string target =
            m_made->writer->Incoming() + "/" + kFilesFolder + "/" + source.name;
        if (!MakeParents(target, error)) return false;

        const auto latest = Published().Latest({ComponentOf(source.name)});
        const ReleaseFile* old = latest ? latest->FindFile(source.name) : nullptr;
        const std::string oldPath = old == nullptr ? "" : latest->FilePath(*old);
        bool linked = old != nullptr && old->length == source.status.st_size &&
                      HaveSameContents(oldPath, source.path) && IsReadableByAll(oldPath) &&
                      link(oldPath.c_str(), target.c_str()) == 0;
        if (linked && !Measure(target, &file, m_observer, error)) return false;
        if (linked && !file.HasContentsOf(*old)) {
            // The maker's file is a link to the published one, and was changed in its place.
            m_observer->Warn("release " + latest->Version() + " is damaged: " + oldPath +
                             " has other contents than were published");
            if (unlink(target.c_str()) != 0) return Fail(error, SystemError(target));
            linked = false;
        }
        if (!linked) {
            WorkObserver silent;  // copying has told of these bytes
            if (!CopyFile(source.path, target, m_observer, error) ||
                !Measure(target, &file, &silent, error)) {
                return false;
            }
            m_made->diskBytes += file.length;
        }

        struct stat now;
        if (stat(source.path.c_str(), &now) != 0 || !IsSameFile(source.status, now) ||
            file.length != source.status.st_size)
            return Fail(error, source.path + ": changed while it was read");
        m_manifest.files.push_back(std::move(file));
        return true;
    }

    void PlanPatches(const ReleaseFile& file) {
        ReleaseList releases = Published().Releases();
        std::erase_if(releases, [component = ComponentOf(file.name)](const auto& release) {
            return !release->HasComponent(component);
        });
        releases.erase(releases.begin(),
                       releases.end() - std::min(releases.size(), m_request.patchesFrom));
        std::ranges::sort(releases, {}, &Release::Version);
        const std::string folder = m_made->writer->Incoming() + "/";
        const size_t first = m_jobs.size();
        for (const auto& before : releases) {
            const ReleaseFile* old = before->FindFile(file.name);
            if (old == nullptr || file.length == 0 || file.HasContentsOf(*old)) continue;
            const std::string oldPath = before->FilePath(*old);
            const auto same =
                std::find_if(m_jobs.begin() + first, m_jobs.end(), [&](const PatchJob& job) {
                    return job.oldLength == old->length && job.oldChecksum == old->checksum &&
                           HaveSameContents(job.oldPath, oldPath);
                });
            m_planned.push_back(
                {file.name, before->Version(), static_cast<size_t>(same - m_jobs.begin())});
            if (same != m_jobs.end()) continue;
            m_jobs.push_back({oldPath, folder + kFilesFolder + "/" + file.name,
                              folder + kPatchesFolder + "/job" + std::to_string(m_jobs.size()),
                              old->length, old->checksum, file.length,
                              file.name + " from " + before->Version()});
        }
    }

    bool MakePatches(std::string* error) {
        if (!MakeParents(m_made->writer->Incoming() + "/" + kPatchesFolder + "/patch", error))
            return false;
        for (size_t i = 0; i < m_manifest.files.size(); ++i) {
            if (m_sources.Files()[i].patchable) PlanPatches(m_manifest.files[i]);
        }
        if (!RunPatchJobs(&m_jobs, m_request.limits, m_observer, error)) return false;
        GroupedWarnings warnings;
        for (const PatchJob& job : m_jobs) {
            if (!job.made) warnings.Add("no patch, since " + job.reason, job.name);
        }
        warnings.Tell(m_observer);
        return NamePatches(error);
    }

    // Gives the patches that were made their indexes.
    bool NamePatches(std::string* error) {
        const std::string folder = m_made->writer->Incoming() + "/" + kPatchesFolder + "/";
        for (const PlannedPatch& planned : m_planned) {
            PatchJob& job = m_jobs[planned.job];
            if (!job.made) continue;
            ReleasePatch patch{planned.name, planned.fromVersion, 0, 0, 0};
            if (!NextIndex(&patch.index, error)) return false;
            const std::string path = folder + PatchFileName(patch.index);
            if (link(job.patchPath.c_str(), path.c_str()) != 0 &&
                !CopyFile(job.patchPath, path, m_observer, error)) {
                return false;
            }
            if (!Measure(path, &patch, m_observer, error)) return false;
            m_manifest.patches.push_back(std::move(patch));
        }
        for (const PatchJob& job : m_jobs) {
            struct stat status;
            if (!job.made || stat(job.patchPath.c_str(), &status) != 0) continue;
            m_made->diskBytes += static_cast<uint64_t>(status.st_size);
            unlink(job.patchPath.c_str());
        }
        return true;
    }

    bool Finish(std::string* error) {
        const std::string text = FormatManifest(m_manifest);
        m_made->diskBytes += text.size();
        if (!WriteWholeFile(m_made->writer->Incoming() + "/" + kManifestFile, text, error))
            return false;
        m_made->release = Release::Load(m_made->writer->Incoming(), error);
        return m_made->release != nullptr;
    }

    const PublishRequest& m_request;
    WorkObserver* m_observer;
    PreparedRelease* m_made;
    ReleaseSources m_sources;
    Manifest m_manifest;
    std::vector<PatchJob> m_jobs;
    std::vector<PlannedPatch> m_planned;  // in the manifest's order
};

}  // namespace

bool PrepareRelease(const PublishRequest& request, WorkObserver* observer, PreparedRelease* made,
                    std::vector<std::string>* problems) {
    return Publisher(request, observer, made).Prepare(problems);
}

bool PreparedRelease::Commit(std::string* error) {
    return writer->Commit({release->Sequence() + 1, static_cast<uint32_t>(release->NextIndex())},
                          error);
}
