// The updater copy: the updater as downloaded into the game's home directory, and the starts that
// hand on to it.
//
// Each start of the copy is noted in a file beside it, and the copy removes the notes when it shows
// its window. So a copy that never does is found out, and given up until it is replaced.
#pragma once

#include <string>

constexpr char kUpdaterCopyName[] = "update.rlb";

// Whether a start name (argv[0], may be null) ends in the copy's name.
bool is_updater_copy_name(const char* startName);

// Replaces this process by the copy in the game's home directory. Returns when there is no copy, or
// where start_updater_copy() does.
void hand_off();

// Replaces this process by the copy at `path`, with at most one argument (null for none). Returns
// when the copy cannot be executed, is cut off, or has been given up.
void start_updater_copy(const std::string& path, const char* argument);

// Whether the copy was started three times in a row without showing its window.
bool is_copy_given_up();

// Removes the notes of all starts.
void forget_starts();

// Writes the copy in the working directory through to the disk. A power cut could otherwise damage
// it, and every start would hand on to it.
void sync_copy();
