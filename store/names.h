// The names that versions, components and files of a release may have.
#pragma once

#include <cstddef>
#include <string>

// The updater reads its version records in pieces of 128 bytes. A longer version does not fit.
constexpr size_t kMaxPublishedVersion = 117;

// The components that updaters ask for: the updater itself, and the game in two components. The
// program is the only file of its component that the updater makes executable.
constexpr char kUpdaterComponent[] = "linux64upd";
constexpr char kUpdaterProgram[] = "update.rlb";
constexpr char kGameComponent[] = "linux64";
constexpr char kGameProgram[] = "halcyrix";
constexpr char kCommonComponent[] = "common";

inline bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

// The component of "component/path".
inline std::string ComponentOf(const std::string& name) { return name.substr(0, name.find('/')); }

// The names with a text between them, such as "a+b".
template <class Names>
std::string Joined(const Names& names, const char* between) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : between) + name;
    return text;
}

// Each returns why the text is refused, or an empty string for a good one.
std::string VersionFault(const std::string& version);
std::string ComponentFault(const std::string& component);
// `name` is "component/path". Names of the updater's own files are refused, too.
std::string FileNameFault(const std::string& name);
