// The versions that an installation has reached: halcyrix.lfv, in the working directory.
//
// One record a line, "%08lx %s\n": the key of a component set and its version, a word of at most
// 117 characters. A record of key 0 serves every set without one of its own; a line that begins
// with "v" is, whole, the version of every set.
#ifndef HALCYRIX_LIB_VERSION_RECORDS_H
#define HALCYRIX_LIB_VERSION_RECORDS_H

#include <cstdint>
#include <list>
#include <string>

constexpr char kVersionRecordFile[] = "halcyrix.lfv";
constexpr char kVersionRecordTemporary[] = "halcyrix.vtm";  // the file under construction

// The key of a set of components, which depends on their order.
uint32_t ComponentKey(const std::list<std::string>& components);

// The version recorded for the key, else the last default record, else the empty string.
std::string ReadVersionRecord(uint32_t key);

// Makes `version` the key's record, the last of the file. When the new file cannot be written
// whole, the old one stays as it was, and a log line says so. A write that is cut off between the
// deletion of the old file and the renaming of the new one leaves no record: the next session
// verifies every file.
void WriteVersionRecord(uint32_t key, const std::string& version);

#endif
