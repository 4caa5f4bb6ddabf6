#include "store/release.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <tuple>
#include <utility>

#include "lib/whole_file.h"

Release::Release(std::string directory, Manifest manifest)
    : m_directory(std::move(directory)), m_manifest(std::move(manifest)) {}

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
    return std::binary_search(m_manifest.components.begin(), m_manifest.components.end(),
                              component);
}

std::span<const ReleaseFile> Release::Files(const std::string& component) const {
    // The names of the component begin with "component/". The first name behind them all could be
    // "component0", since '0' follows '/'.
    static_assert('/' + 1 == '0');
    const auto byName = [](const ReleaseFile& file, const std::string& name) {
        return file.name < name;
    };
    const auto& files = m_manifest.files;
    const auto first = std::lower_bound(files.begin(), files.end(), component + "/", byName);
    const auto last = std::lower_bound(first, files.end(), component + "0", byName);
    return {first, last};
}

const ReleaseFile* Release::FindFile(const std::string& name) const {
    const auto& files = m_manifest.files;
    const auto found = std::lower_bound(
        files.begin(), files.end(), name,
        [](const ReleaseFile& file, const std::string& wanted) { return file.name < wanted; });
    return found != files.end() && found->name == name ? &*found : nullptr;
}

const ReleasePatch* Release::FindPatch(const std::string& name,
                                       const std::string& fromVersion) const {
    const auto& patches = m_manifest.patches;
    const auto wanted = std::tie(name, fromVersion);
    const auto found = std::lower_bound(patches.begin(), patches.end(), wanted,
                                        [](const ReleasePatch& patch, const auto& key) {
                                            return std::tie(patch.name, patch.fromVersion) < key;
                                        });
    const bool same =
        found != patches.end() && found->name == name && found->fromVersion == fromVersion;
    return same ? &*found : nullptr;
}

std::string Release::FilePath(const ReleaseFile& file) const {
    return m_directory + "/" + kFilesFolder + "/" + file.name;
}

std::string Release::PatchPath(const ReleasePatch& patch) const {
    return m_directory + "/" + kPatchesFolder + "/" + PatchFileName(patch.index);
}

std::string Release::DownloadName(const ReleasePatch& patch) {
    return std::string(kPatchFolder) + "/" + PatchFileName(patch.index);
}

std::string PatchFileName(uint32_t index) {
    char name[9];
    snprintf(name, sizeof name, "%08" PRIx32, index);
    return name;
}
