// What a release may be called and what it may hold.
#ifndef HALCYRIX_STORE_NAMES_H
#define HALCYRIX_STORE_NAMES_H

#include <cstddef>
#include <string>

// A version record of the updater is read in pieces of 128 bytes; a longer version does not fit.
constexpr size_t kMaxPublishedVersion = 117;

// Each returns why the text is refused, and an empty string for a good one.
std::string VersionFault(const std::string& version);
std::string ComponentFault(const std::string& component);
// `name` is "component/path". Refused is also what the updater keeps for its own files.
std::string FileNameFault(const std::string& name);

#endif
