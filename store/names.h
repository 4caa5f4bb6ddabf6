// What a release may be called and what it may hold.
#ifndef HALCYRIX_STORE_NAMES_H
#define HALCYRIX_STORE_NAMES_H

#include <cstddef>
#include <string>

// A version record of the updater is read in pieces of 128 bytes; a longer version does not fit.
constexpr size_t kMaxPublishedVersion = 117;

// What players' updaters ask for: the updater itself, and the game in two components. Each program
// is the one file of its component that players may run.
constexpr char kUpdaterComponent[] = "linux64upd";
constexpr char kUpdaterProgram[] = "update.rlb";
constexpr char kGameComponent[] = "linux64";
constexpr char kGameProgram[] = "halcyrix";
constexpr char kCommonComponent[] = "common";

// The component of "component/path".
std::string ComponentOf(const std::string& name);

// Each returns why the text is refused, and an empty string for a good one.
std::string VersionFault(const std::string& version);
std::string ComponentFault(const std::string& component);
// `name` is "component/path". Refused is also what the updater keeps for its own files.
std::string FileNameFault(const std::string& name);

#endif
