// ELF programs, as far as the updater and the maker's tool look into them.
#ifndef HALCYRIX_LIB_ELF_FILE_H
#define HALCYRIX_LIB_ELF_FILE_H

#include <cstdint>
#include <string>

// The note that every updater carries. Its text has a line each for the program's name, its
// version and the update hosts built into it.
constexpr char kUpdaterNoteOwner[] = "Halcyrix";
constexpr uint32_t kUpdaterNoteType = 1;

// Whether the file is an incomplete program, also an empty file. The system would start most of
// these, and they would crash. False for any other file, also for one that cannot be read.
bool IsTruncatedElf(const std::string& path);

#endif
