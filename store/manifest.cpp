#include "store/manifest.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <functional>
#include <sstream>
#include <string_view>
#include <tuple>

#include "lib/checksum.h"
#include "lib/failure.h"
#include "store/names.h"

namespace {

constexpr char kFirstLine[] = "halcyrix-release 1\n";
constexpr size_t kLastLineSize = sizeof "end 00000000\n" - 1;

std::string Hex(uint32_t value) {
    char text[9];
    snprintf(text, sizeof text, "%08" PRIx32, value);
    return text;
}

std::string LastLine(std::string_view before) {
    const auto size = static_cast<uint32_t>(before.size());
    return "end " + Hex(Checksum(before.data(), size, kFileChecksumStart)) + "\n";
}

// Takes what is there of the lines between the first and the last. FormatManifest() of the result
// tells whether they were well formed.
Manifest ParseLines(const std::string& text) {
    Manifest manifest;
    std::istringstream words(text);
    for (std::string keyword, version, name; words >> keyword;) {
        uint32_t index = 0, checksum = 0, length = 0;
        const bool isFile = keyword == "file", isPatch = keyword == "patch";
        if (keyword == "sequence") words >> manifest.sequence;
        if (keyword == "first-index") words >> manifest.firstIndex;
        if (keyword == "version") words >> manifest.version;
        if (isFile || isPatch) words >> index >> std::hex >> checksum >> std::dec >> length;
        if (isPatch) words >> version;
        std::getline(words, name);
        name.erase(0, 1);  // a blank
        if (keyword == "component") manifest.components.push_back(name);
        if (isFile) manifest.files.push_back({name, checksum, length, index});
        if (isPatch) manifest.patches.push_back({name, version, checksum, length, index});
    }
    return manifest;
}

// Whether the keys of the entries increase from each to the next.
template <class Entries, class Key>
bool AreInOrder(const Entries& entries, Key key) {
    return std::ranges::adjacent_find(entries, std::ranges::greater_equal(), key) == entries.end();
}

// What is wrong in a well-formed manifest, or an empty string.
std::string ContentFault(const Manifest& manifest) {
    const auto& [sequence, version, firstIndex, components, files, patches] = manifest;
    const auto key = [](const ReleasePatch& patch) {
        return std::tie(patch.name, patch.fromVersion);
    };
    if (sequence == 0) return "sequence number 0";
    if (!VersionFault(version).empty()) return "version " + version;
    if (!AreInOrder(components, std::identity()) || !AreInOrder(files, &ReleaseFile::name) ||
        !AreInOrder(patches, key)) {
        return "one that is out of order";
    }
    for (const std::string& component : components) {
        if (!ComponentFault(component).empty()) return "component " + component;
    }
    uint32_t index = firstIndex;
    for (const ReleaseFile& file : files) {
        if (file.index != index++ || file.checksum == kNoChecksum ||
            !FileNameFault(file.name).empty() ||
            !std::ranges::binary_search(components, ComponentOf(file.name))) {
            return "file " + file.name;
        }
    }
    for (const ReleasePatch& patch : patches) {
        if (patch.index != index++ || patch.checksum == kNoChecksum ||
            !VersionFault(patch.fromVersion).empty() ||
            !std::ranges::binary_search(files, patch.name, {}, &ReleaseFile::name)) {
            return "patch of " + patch.name;
        }
    }
    return {};
}

}  // namespace

std::string FormatManifest(const Manifest& manifest) {
    std::ostringstream text;
    text << kFirstLine << "sequence " << manifest.sequence << "\nversion " << manifest.version
         << "\nfirst-index " << manifest.firstIndex << "\n";
    for (const std::string& name : manifest.components) text << "component " << name << "\n";
    for (const auto& [name, checksum, length, index] : manifest.files) {
        text << "file " << index << " " << Hex(checksum) << " " << length << " " << name << "\n";
    }
    for (const auto& [name, from, checksum, length, index] : manifest.patches) {
        text << "patch " << index << " " << Hex(checksum) << " " << length << " " << from << " "
             << name << "\n";
    }
    text << "next-index " << manifest.NextIndex() << "\n";
    return text.str() + LastLine(text.str());
}

bool ParseManifest(const std::string& text, Manifest* manifest, std::string* error) {
    const size_t body = text.size() - std::min(text.size(), kLastLineSize);
    *manifest = ParseLines(text);
    if (!text.starts_with(kFirstLine)) return Fail(error, "no manifest of a known kind");
    if (text.substr(body) != LastLine(text.substr(0, body))) {
        return Fail(error, "the manifest is damaged or cut short");
    }
    if (FormatManifest(*manifest) != text) {
        return Fail(error, "a line of the manifest is malformed");
    }
    const std::string fault = ContentFault(*manifest);
    return fault.empty() || Fail(error, "the manifest has an impossible entry: " + fault);
}
