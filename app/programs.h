// The programs that this one becomes.
#pragma once

#include <initializer_list>

// The mode that a program gets before it is started.
constexpr unsigned kProgramMode = 0755;

// Replaces this process by the program at `path`. The arguments begin with its name; signals are
// set to their defaults. On failure it returns with the signals as they were.
void become(const char* path, std::initializer_list<const char*> arguments);
