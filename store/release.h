// One published release.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "store/manifest.h"

// The contents of a release's directory.
constexpr char kManifestFile[] = "manifest";
constexpr char kFilesFolder[] = "files";      // files by name
constexpr char kPatchesFolder[] = "patches";  // patches by index, in eight hexadecimal digits

// The folder in its home directory where the updater keeps patches.
constexpr char kPatchFolder[] = "halcyrix.patches";

// A file of a release's directory.
struct StoredFile {
    std::string path;
    uint32_t checksum;
    uint32_t length;
};

// Immutable. Pointers, references and spans that it returns live as long as the release.
class Release {
public:
    // Null, with the reason in `error`, when the directory has no good manifest. Does not look at
    // the files themselves.
    static std::shared_ptr<const Release> Load(const std::string& directory, std::string* error);

    const std::string& Directory() const { return m_directory; }
    const std::string& Version() const { return m_manifest.version; }
    uint32_t Sequence() const { return m_manifest.sequence; }
    // The release has the indexes from the first to before the next.
    uint32_t FirstIndex() const { return m_manifest.firstIndex; }
    uint64_t NextIndex() const { return m_manifest.NextIndex(); }

    std::span<const std::string> Components() const { return m_manifest.components; }
    bool HasComponent(const std::string& component) const;

    // Sorted by name.
    std::span<const ReleaseFile> Files() const { return m_manifest.files; }
    std::span<const ReleaseFile> Files(const std::string& component) const;
    std::span<const ReleasePatch> Patches() const { return m_manifest.patches; }
    // Of the files and patches.
    uint64_t Bytes() const { return BytesOf(m_manifest.files) + BytesOf(m_manifest.patches); }

    // Null when the release has none.
    const ReleaseFile* FindFile(const std::string& name) const;
    const ReleasePatch* FindPatch(const std::string& name, const std::string& fromVersion) const;

    std::string FilePath(const ReleaseFile& file) const;
    // The file or patch with this index, which must be one of the release's.
    StoredFile Stored(uint32_t index) const;

    // The local path under which the player's updater keeps the patch until it is applied.
    static std::string DownloadName(const ReleasePatch& patch);

private:
    Release(std::string directory, Manifest manifest)
        : m_directory(std::move(directory)), m_manifest(std::move(manifest)) {}

    std::string m_directory;
    Manifest m_manifest;
};

using ReleaseList = std::vector<std::shared_ptr<const Release>>;

// The name of a patch's file below the release's patches folder.
std::string PatchFileName(uint32_t index);
