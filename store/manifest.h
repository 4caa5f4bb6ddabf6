// The manifest: a text that lists the files and patches of one release.
//
//   halcyrix-release 1
//   sequence 7
//   version 1.4
//   first-index 300
//   component common
//   file 300 b66e2858 3 common/data/abc.txt
//   patch 301 5bd1e995 120 1.3 common/data/abc.txt
//   next-index 302
//   end 87e5865b
//
// A file has index, checksum, length and name. A patch has index, checksum and length of its own,
// then the version that it starts from, and the name of the file that it makes. Components, files
// and patches are sorted by name, patches of one file by version. Indexes count up from the first.
// The last line has the checksum of all bytes before it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The first index of the first release. Index 0xFFFFFFFF is never used: it ends a download stream.
constexpr uint32_t kFirstIndex = 1;
constexpr uint32_t kIndexLimit = 0xFFFFFFFF;

struct ReleaseFile {
    std::string name;  // "component/path"
    uint32_t checksum;
    uint32_t length;
    uint32_t index;

    bool HasContentsOf(const ReleaseFile& other) const {
        return checksum == other.checksum && length == other.length;
    }
};

struct ReleasePatch {
    std::string name;         // of the file that it makes
    std::string fromVersion;  // of the file that it is applied to
    uint32_t checksum;        // of the patch itself, as the length
    uint32_t length;
    uint32_t index;
};

struct Manifest {
    uint32_t sequence = 0;
    std::string version;
    uint32_t firstIndex = kFirstIndex;
    std::vector<std::string> components;
    std::vector<ReleaseFile> files;
    std::vector<ReleasePatch> patches;

    // One more than the last index of the release.
    uint64_t NextIndex() const { return firstIndex + uint64_t{files.size()} + patches.size(); }
};

// The sum of the lengths of files or patches.
template <class Entries>
uint64_t BytesOf(const Entries& entries) {
    uint64_t bytes = 0;
    for (const auto& entry : entries) bytes += entry.length;
    return bytes;
}

std::string FormatManifest(const Manifest& manifest);

// False, with the reason in `error`, when the checksum, a line, a name, an index or the order of
// the entries is wrong.
[[nodiscard]] bool ParseManifest(const std::string& text, Manifest* manifest, std::string* error);
