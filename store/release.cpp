#include "store/release.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <tuple>
#include <utility>

#include "lib/whole_file.h"

std::shared_ptr<const Release> Release::Load(const std::string& directory, std::string* error) {
    const std::string path = directory + "/" + kManifestFile;
    std::string text;
    if (!ReadWholeFile(path, &text, error)) return nullptr;
    Manifest manifest;
    std::string fault;
    if (!ParseManifest(text, &manifest, &fault)) return Fail(error, path + ": " + fault);
    return std::shared_ptr<const Release>(new Release(directory, std::move(manifest)));
}

bool Release::HasComponent(const std::string& component) const {
    return std::ranges::binary_search(m_manifest.components, component);
}

std::span<const ReleaseFile> Release::Files(const std::string& component) const {
    // The names of the component begin with "component/". The first name behind them all could be
    // "component0", since '0' follows '/'.
    static_assert('/' + 1 == '0');
    const auto& files = m_manifest.files;
    return {std::ranges::lower_bound(files, component + "/", {}, &ReleaseFile::name),
            std::ranges::lower_bound(files, component + "0", {}, &ReleaseFile::name)};
}

const ReleaseFile* Release::FindFile(const std::string& name) const {
    const auto& files = m_manifest.files;
    const auto found = std::ranges::lower_bound(files, name, {}, &ReleaseFile::name);
    return found != files.end() && found->name == name ? &*found : nullptr;
}

const ReleasePatch* Release::FindPatch(const std::string& name,
                                       const std::string& fromVersion) const {
    const auto key = [](const ReleasePatch& patch) {
        return std::tie(patch.name, patch.fromVersion);
    };
    const auto wanted = std::tie(name, fromVersion);
    const auto found = std::ranges::lower_bound(m_manifest.patches, wanted, {}, key);
    return found != m_manifest.patches.end() && key(*found) == wanted ? &*found : nullptr;
}

std::string Release::FilePath(const ReleaseFile& file) const {
    return m_directory + "/" + kFilesFolder + "/" + file.name;
}

StoredFile Release::Stored(uint32_t index) const {
    const size_t place = index - m_manifest.firstIndex;
    if (place < m_manifest.files.size()) {
        const ReleaseFile& file = m_manifest.files[place];
        return {FilePath(file), file.checksum, file.length};
    }
    const ReleasePatch& patch = m_manifest.patches[place - m_manifest.files.size()];
    return {m_directory + "/" + kPatchesFolder + "/" + PatchFileName(index), patch.checksum,
            patch.length};
}

std::string Release::DownloadName(const ReleasePatch& patch) {
    return std::string(kPatchFolder) + "/" + PatchFileName(patch.index);
}

std::string PatchFileName(uint32_t index) {
    char name[9];
    snprintf(name, sizeof name, "%08" PRIx32, index);
    return name;
}
