#include "store/publisher.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "delta/delta.h"
#include "lib/file_helpers.h"
#include "lib/local_file_check.h"
#include "lib/whole_file.h"
#include "store/names.h"

namespace fs = std::filesystem;

namespace {

std::string ComponentOf(const std::string& name) {
    return name.substr(0, name.find('/'));
}

// Whether a path leads to the directory or below it.
bool IsBelow(const std::string& path, const std::string& directory) {
    std::error_code ignored;
    const fs::path inner = fs::weakly_canonical(fs::absolute(path, ignored), ignored);
    const fs::path outer = fs::weakly_canonical(fs::absolute(directory, ignored), ignored);
    return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first ==
           outer.end();
}

// Makes `to` another name of `from`, or a copy where that cannot be.
bool LinkOrCopyFile(const std::string& from, const std::string& to, std::string* error) {
    return link(from.c_str(), to.c_str()) == 0 || CopyFile(from, to, error);
}

bool MakeParents(const std::string& path, std::string* error) {
    std::error_code fault;
    const fs::path parent = fs::path(path).parent_path();
    fs::create_directories(parent, fault);
    if (fault) *error = parent.string() + ": " + fault.message();
    return !fault;
}

}  // namespace

Publisher::Publisher(PublishRequest request, PublishObserver* observer)
    : m_request(std::move(request)), m_observer(observer) {}

bool Publisher::Publish(std::string* error) {
    std::vector<std::string> warnings;
    if (!CheckRequest(error) || !m_sources.Scan(m_request.components, &warnings, error)) {
        return false;
    }
    for (const std::string& warning : warnings) m_observer->Warn(warning);

    if (!OpenStore(error) || !StoreFiles(error) || !MakePatches(error) ||
        !m_sources.AreUnchanged(error) || !WriteManifest(error)) {
        return false;
    }
    const Reservation next{m_manifest.sequence + 1, static_cast<uint32_t>(m_manifest.NextIndex())};
    return m_writer->Commit(next, error);
}

bool Publisher::CheckRequest(std::string* error) const {
    const std::string fault = VersionFault(m_request.version);
    if (!fault.empty()) {
        *error = "version \"" + m_request.version + "\" " + fault;
        return false;
    }
    for (const ComponentSource& component : m_request.components) {
        if (!IsBelow(m_request.store, component.directory)) continue;
        *error = component.directory + ": holds the store itself";
        return false;
    }
    return true;
}

bool Publisher::OpenStore(std::string* error) {
    m_writer = StoreWriter::Open(m_request.store, error);
    if (!m_writer) return false;
    for (const auto& [sequence, damaged] : m_writer->Published().Damaged()) {
        m_observer->Warn("release " + SequenceName(sequence) + " is damaged: " + damaged.reason);
    }
    if (m_writer->Published().Find(m_request.version)) {
        *error = m_request.store + ": version " + m_request.version + " is published already";
        return false;
    }
    m_manifest.sequence = m_writer->Next().sequence;
    m_manifest.firstIndex = m_writer->Next().index;
    m_manifest.version = m_request.version;
    for (const ComponentSource& component : m_request.components) {
        m_manifest.components.push_back(component.component);
    }
    std::sort(m_manifest.components.begin(), m_manifest.components.end());
    return m_writer->Begin(error);
}

Publisher::Releases Publisher::EarlierReleases(const std::string& name) const {
    const std::string component = ComponentOf(name);
    Releases releases = m_writer->Published().Releases();
    std::reverse(releases.begin(), releases.end());
    std::erase_if(releases,
                  [&component](const auto& release) { return !release->HasComponent(component); });
    return releases;
}

bool Publisher::NextIndex(uint32_t* index, std::string* error) const {
    const uint64_t next = m_manifest.NextIndex();
    if (next >= kIndexLimit) {
        *error = m_request.store + ": no file index is left";
        return false;
    }
    *index = static_cast<uint32_t>(next);
    return true;
}

bool Publisher::StoreFiles(std::string* error) {
    for (const ReleaseSource& source : m_sources.Files()) {
        m_observer->Progress("storing", m_manifest.files.size() + 1, m_sources.Files().size(),
                             source.name);
        if (!StoreFile(source, error)) return false;
    }
    return true;
}

bool Publisher::StoreFile(const ReleaseSource& source, std::string* error) {
    ReleaseFile file{source.name, 0, 0, 0};
    if (!NextIndex(&file.index, error)) return false;
    const std::string target = m_writer->Incoming() + "/" + kFilesFolder + "/" + source.name;
    if (!MakeParents(target, error)) return false;

    const Releases releases = EarlierReleases(source.name);
    const ReleaseFile* old = releases.empty() ? nullptr : releases.front()->FindFile(source.name);
    const std::string oldPath = old == nullptr ? "" : releases.front()->FilePath(*old);
    const bool same = old != nullptr && old->length == source.status.st_size &&
                      HaveSameContents(oldPath, source.path);
    if (!(same ? LinkOrCopyFile(oldPath, target, error) : CopyFile(source.path, target, error))) {
        return false;
    }

    struct stat now;
    if (stat(source.path.c_str(), &now) != 0 || !IsSameFile(source.status, now) ||
        FileSize(target) != source.status.st_size) {
        *error = source.path + ": changed while it was read";
        return false;
    }
    file.length = static_cast<uint32_t>(source.status.st_size);
    file.checksum = same ? old->checksum : FileChecksum(target, nullptr);
    if (file.checksum == kNoChecksum) {
        *error = SystemError(target);
        return false;
    }
    m_manifest.files.push_back(std::move(file));
    return true;
}

bool Publisher::MakePatches(std::string* error) {
    if (!MakeParents(m_writer->Incoming() + "/" + kPatchesFolder + "/patch", error)) return false;
    size_t number = 0;
    for (const ReleaseFile& file : m_manifest.files) {
        m_observer->Progress("patching", ++number, m_manifest.files.size(), file.name);
        Releases releases = EarlierReleases(file.name);
        releases.resize(std::min(releases.size(), m_request.patchesFrom));
        std::sort(releases.begin(), releases.end(),
                  [](const auto& a, const auto& b) { return a->Version() < b->Version(); });
        std::vector<MadePatch> made;
        for (const auto& before : releases) {
            if (!MakePatchFrom(*before, file, &made, error)) return false;
        }
    }
    return true;
}

bool Publisher::MakePatchFrom(const Release& before, const ReleaseFile& file,
                              std::vector<MadePatch>* made, std::string* error) {
    const ReleaseFile* old = before.FindFile(file.name);
    if (old == nullptr || file.length == 0) return true;
    if (old->checksum == file.checksum && old->length == file.length) return true;
    const std::string oldPath = before.FilePath(*old);
    const std::string folder = m_writer->Incoming() + "/";
    const std::string newPath = folder + kFilesFolder + "/" + file.name;

    ReleasePatch patch{file.name, before.Version(), 0, 0, 0};
    if (!NextIndex(&patch.index, error)) return false;
    const std::string patchPath = folder + kPatchesFolder + "/" + PatchFileName(patch.index);

    const auto same = std::find_if(made->begin(), made->end(), [&oldPath](const MadePatch& other) {
        return HaveSameContents(other.oldPath, oldPath);
    });
    if (same != made->end()) {
        if (same->patchPath.empty()) return true;
        if (!LinkOrCopyFile(same->patchPath, patchPath, error)) return false;
    } else {
        if (CheckLocalFile(oldPath, old->length, old->checksum, nullptr).result != CHECK_GOOD) {
            m_observer->Warn(oldPath + ": damaged; no patch is made from it");
            return true;
        }
        const DeltaResult result = MakePatch(oldPath, newPath, patchPath, file.length - 1, error);
        if (result == DeltaResult::FAILED) return false;
        made->push_back({oldPath, result == DeltaResult::MADE ? patchPath : ""});
        if (result == DeltaResult::NONE) return true;
        // A wrong patch would cost the player the file: let the updater's own code have the say.
        if (!VerifyPatch(oldPath, newPath, patchPath, error)) return false;
    }
    patch.length = static_cast<uint32_t>(FileSize(patchPath));
    patch.checksum = FileChecksum(patchPath, nullptr);
    m_manifest.patches.push_back(std::move(patch));
    return true;
}

bool Publisher::WriteManifest(std::string* error) const {
    const std::string text = FormatManifest(m_manifest);
    Manifest readBack;
    if (!ParseManifest(text, &readBack, error)) return false;
    return WriteWholeFile(m_writer->Incoming() + "/" + kManifestFile, text, error);
}
