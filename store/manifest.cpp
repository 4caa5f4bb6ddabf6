#include "store/manifest.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string_view>
#include <utility>

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
    const uint32_t checksum =
        Checksum(before.data(), static_cast<uint32_t>(before.size()), kFileChecksumStart);
    return "end " + Hex(checksum) + "\n";
}

// Takes what is there of the lines between the first and the last. FormatManifest() of the result
// tells whether they were well formed.
Manifest ParseLines(const std::string& text) {
    Manifest manifest;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const size_t blank = line.find(' ');
        if (blank == std::string::npos) continue;
        const std::string keyword = line.substr(0, blank);
        char* rest = &line[blank];
        const auto number = [&rest](int base) {
            return static_cast<uint32_t>(strtoul(rest, &rest, base));
        };
        if (keyword == "sequence") manifest.sequence = number(10);
        if (keyword == "version") manifest.version = line.substr(blank + 1);
        if (keyword == "first-index") manifest.firstIndex = number(10);
        if (keyword == "component") manifest.components.push_back(line.substr(blank + 1));
        if (keyword != "file" && keyword != "patch") continue;
        const uint32_t index = number(10), checksum = number(16), length = number(10);
        std::string words(rest);
        words.erase(0, 1);  // a blank
        const std::string version = words.substr(0, words.find(' '));
        if (keyword == "file") {
            manifest.files.push_back({words, checksum, length, index});
        } else {
            words.erase(0, version.size() + 1);
            manifest.patches.push_back({words, version, checksum, length, index});
        }
    }
    return manifest;
}

// The first wrong entry of a well-formed manifest, or an empty string.
std::string ContentFault(const Manifest& manifest) {
    if (manifest.sequence == 0) return "sequence number 0";
    if (!VersionFault(manifest.version).empty()) return "version " + manifest.version;

    std::string before;
    for (const std::string& component : manifest.components) {
        if (component <= before || !ComponentFault(component).empty()) {
            return "component " + component;
        }
        before = component;
    }

    const auto& components = manifest.components;
    uint32_t index = manifest.firstIndex;
    before.clear();
    for (const ReleaseFile& file : manifest.files) {
        if (file.name <= before || file.index != index++ || file.checksum == kNoChecksum ||
            !FileNameFault(file.name).empty() ||
            !std::ranges::binary_search(components, ComponentOf(file.name))) {
            return "file " + file.name;
        }
        before = file.name;
    }

    std::pair<std::string, std::string> last;
    auto file = manifest.files.begin();
    for (const ReleasePatch& patch : manifest.patches) {
        while (file != manifest.files.end() && file->name < patch.name) ++file;
        const bool known = file != manifest.files.end() && file->name == patch.name;
        std::pair key(patch.name, patch.fromVersion);
        if (!known || key <= last || patch.index != index++ || patch.checksum == kNoChecksum ||
            !VersionFault(patch.fromVersion).empty()) {
            return "patch of " + patch.name;
        }
        last = std::move(key);
    }
    return {};
}

}  // namespace

std::string FormatManifest(const Manifest& manifest) {
    std::string text = kFirstLine;
    text += "sequence " + std::to_string(manifest.sequence) + "\n";
    text += "version " + manifest.version + "\n";
    text += "first-index " + std::to_string(manifest.firstIndex) + "\n";
    for (const std::string& component : manifest.components)
        text += "component " + component + "\n";
    for (const ReleaseFile& file : manifest.files) {
        text += "file " + std::to_string(file.index) + " " + Hex(file.checksum) + " " +
                std::to_string(file.length) + " " + file.name + "\n";
    }
    for (const ReleasePatch& patch : manifest.patches) {
        text += "patch " + std::to_string(patch.index) + " " + Hex(patch.checksum) + " " +
                std::to_string(patch.length) + " " + patch.fromVersion + " " + patch.name + "\n";
    }
    text += "next-index " + std::to_string(manifest.NextIndex()) + "\n";
    return text + LastLine(text);
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
