// The installed versions: halcyrix.lfv in the working directory.
//
// One record a line, "%08lx %s\n": the key of a component set and its version, a word of at most
// 117 characters. The record of key 0 is the default. A line that begins with "v" is the version of
// every set.
#pragma once

#include <cstdint>
#include <list>
#include <string>

constexpr char kVersionRecordFile[] = "halcyrix.lfv";
constexpr char kVersionRecordTemporary[] = "halcyrix.vtm";  // the file under construction

// The key of a set of components, which depends on their order.
uint32_t ComponentKey(const std::list<std::string>& components);

// The version recorded for the key, else the last default record, else the empty string.
std::string ReadVersionRecord(uint32_t key);

// Writes `version` as the key's record, at the end of the file. When the new file cannot be
// written, the old one stays and a log line says so. A crash between deleting the old file and
// renaming the new one leaves no record; the next session then verifies every file.
void WriteVersionRecord(uint32_t key, const std::string& version);
