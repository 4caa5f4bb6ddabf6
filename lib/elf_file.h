// ELF programs: the part of their format that the updater and the maker's tool share.
#pragma once

#include <cstdint>
#include <string>

// Every updater has this note. The lines of its text are the program's name, its version and its
// update hosts.
constexpr char kUpdaterNoteOwner[] = "Halcyrix";
constexpr uint32_t kUpdaterNoteType = 1;

// True for an incomplete program and for an empty file. The system would start most of these, and
// they would crash. False for any other file and for one that cannot be read.
bool IsTruncatedElf(const std::string& path);
