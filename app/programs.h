// The programs that this one becomes or starts, and what it hands on to them.
#ifndef HALCYRIX_APP_PROGRAMS_H
#define HALCYRIX_APP_PROGRAMS_H

#include <initializer_list>
#include <string>

// The mode that a program gets before it is started.
constexpr unsigned kProgramMode = 0755;

// The updater copy: the updater as downloaded into the game's home directory.
constexpr char kUpdaterCopyName[] = "update.rlb";

// Settings of the process that errors and closed connections of any mode rest on, and what has
// to be true of its descriptors before the first one is opened.
void prepare_process();

// Replaces this process by the program at `path`, with the arguments from its name on, and with
// signals as every program expects to find them. Returns, with everything as it was, when that
// fails.
void become(const char* path, std::initializer_list<const char*> arguments);

// Whether a start name (argv[0], may be null) ends in the copy's name.
bool is_updater_copy_name(const char* startName);

// Replaces this process by the copy at `path`, with at most one argument (null for none). Returns
// when the copy cannot be executed, or was cut off.
void start_updater_copy(const std::string& path, const char* argument);

// Replaces this process by the copy in the game's home directory; returns when there is none or it
// cannot be executed.
void hand_off();

#endif
