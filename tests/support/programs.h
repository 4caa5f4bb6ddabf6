// The project's own programs, as tests start them.
#ifndef HALCYRIX_TESTS_SUPPORT_PROGRAMS_H
#define HALCYRIX_TESTS_SUPPORT_PROGRAMS_H

#include <string>
#include <vector>

// Runs the program to its end, with output and errors into `output` (may be null). Returns its exit
// status, or 128 and the signal that ended it.
int RunProgram(const std::vector<std::string>& command, std::string* output);

#endif
