// The updater copy: the updater as downloaded into the game's home directory.
#ifndef HALCYRIX_APP_UPDATER_COPY_H
#define HALCYRIX_APP_UPDATER_COPY_H

#include <string>

// The mode that a program gets before it is started.
constexpr unsigned kProgramMode = 0755;

constexpr char kUpdaterCopyName[] = "update.rlb";

// Whether a start name (argv[0], may be null) ends in the copy's name.
bool IsUpdaterCopyName(const char* startName);

// Replaces this process by the copy at `path`, with at most one argument (null for none). Returns
// when the copy cannot be executed, or when it was cut off and would only crash.
void StartUpdaterCopy(const std::string& path, const char* argument);

// Replaces this process by the copy in the game's home directory; returns when there is none or it
// cannot be executed.
void HandOff();

#endif
