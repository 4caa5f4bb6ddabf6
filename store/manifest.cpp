#include "store/manifest.h"

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <string_view>

#include "lib/checksum.h"
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

// Reads a text line by line: first the keyword, then words and numbers, last the rest of the line.
// After one failure, all further calls fail. The text must outlive it.
class LineParser {
public:
    explicit LineParser(std::string_view text) : m_text(text) {}

    bool Ok() const { return m_ok; }
    bool AtEnd() const { return m_text.empty(); }

    bool Begins(std::string_view keyword) {
        if (!m_ok || !m_text.starts_with(keyword)) return false;
        if (m_text.substr(keyword.size(), 1) != " ") return false;
        m_text.remove_prefix(keyword.size() + 1);
        return true;
    }

    void Expect(std::string_view keyword) {
        if (!Begins(keyword)) m_ok = false;
    }

    std::string Word() { return std::string(Take(' ')); }
    std::string Rest() { return std::string(Take('\n')); }
    uint32_t Number(char end, int base = 10) {
        const std::string_view digits = Take(end);
        uint32_t value = 0;
        const char* last = digits.data() + digits.size();
        const auto [stop, fault] = std::from_chars(digits.data(), last, value, base);
        if (fault != std::errc() || stop != last) m_ok = false;
        return value;
    }

private:
    std::string_view Take(char end) {
        const size_t size = m_ok ? m_text.find(end) : std::string_view::npos;
        if (size == std::string_view::npos) {
            m_ok = false;
            return {};
        }
        const std::string_view taken = m_text.substr(0, size);
        m_text.remove_prefix(size + 1);
        return taken;
    }

    std::string_view m_text;
    bool m_ok = true;
};

// The lines between the first and the last.
bool ParseBody(std::string_view body, Manifest* manifest) {
    LineParser parser(body);
    parser.Expect("sequence");
    manifest->sequence = parser.Number('\n');
    parser.Expect("version");
    manifest->version = parser.Rest();
    parser.Expect("first-index");
    manifest->firstIndex = parser.Number('\n');
    while (parser.Begins("component")) manifest->components.push_back(parser.Rest());
    while (parser.Begins("file")) {
        ReleaseFile file;
        file.index = parser.Number(' ');
        file.checksum = parser.Number(' ', 16);
        file.length = parser.Number(' ');
        file.name = parser.Rest();
        manifest->files.push_back(std::move(file));
    }
    while (parser.Begins("patch")) {
        ReleasePatch patch;
        patch.index = parser.Number(' ');
        patch.checksum = parser.Number(' ', 16);
        patch.length = parser.Number(' ');
        patch.fromVersion = parser.Word();
        patch.name = parser.Rest();
        manifest->patches.push_back(std::move(patch));
    }
    parser.Expect("next-index");
    const uint32_t nextIndex = parser.Number('\n');
    return parser.Ok() && parser.AtEnd() && nextIndex == manifest->NextIndex();
}

// The first wrong entry of a well-formed manifest, or an empty string.
std::string ContentFault(const Manifest& manifest) {
    if (manifest.sequence == 0) return "sequence number 0";
    if (!VersionFault(manifest.version).empty()) return "version " + manifest.version;

    const std::string* before = nullptr;
    for (const std::string& component : manifest.components) {
        const bool sorted = before == nullptr || *before < component;
        if (!sorted || !ComponentFault(component).empty()) return "component " + component;
        before = &component;
    }

    uint32_t index = manifest.firstIndex;
    auto component = manifest.components.begin();
    before = nullptr;
    for (const ReleaseFile& file : manifest.files) {
        const bool sorted = before == nullptr || *before < file.name;
        if (!sorted || file.index != index++ || file.checksum == kNoChecksum ||
            !FileNameFault(file.name).empty()) {
            return "file " + file.name;
        }
        // Files are not in the order of components where one component's name begins with
        // another's.
        if (component == manifest.components.end() || *component != ComponentOf(file.name)) {
            component = std::find(manifest.components.begin(), manifest.components.end(),
                                  ComponentOf(file.name));
        }
        if (component == manifest.components.end()) return "file " + file.name;
        before = &file.name;
    }

    const ReleasePatch* last = nullptr;
    auto file = manifest.files.begin();
    for (const ReleasePatch& patch : manifest.patches) {
        while (file != manifest.files.end() && file->name < patch.name) ++file;
        const bool known = file != manifest.files.end() && file->name == patch.name;
        const bool sorted = last == nullptr || last->name < patch.name ||
                            (last->name == patch.name && last->fromVersion < patch.fromVersion);
        if (!known || !sorted || patch.index != index++ || patch.checksum == kNoChecksum ||
            !VersionFault(patch.fromVersion).empty()) {
            return "patch of " + patch.name;
        }
        last = &patch;
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
    if (!text.starts_with(kFirstLine)) {
        *error = "no manifest of a known kind";
        return false;
    }
    const std::string_view body(text.data(), text.size() - std::min(text.size(), kLastLineSize));
    if (text.substr(body.size()) != LastLine(body)) {
        *error = "the manifest is damaged or cut short";
        return false;
    }
    *manifest = Manifest();
    if (!ParseBody(body.substr(sizeof kFirstLine - 1), manifest)) {
        *error = "a line of the manifest is malformed";
        return false;
    }
    const std::string fault = ContentFault(*manifest);
    if (!fault.empty()) *error = "the manifest has an impossible entry: " + fault;
    return fault.empty();
}
