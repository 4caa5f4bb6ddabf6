// A time limit for every wait.
#ifndef HALCYRIX_TESTS_SUPPORT_AWAIT_H
#define HALCYRIX_TESTS_SUPPORT_AWAIT_H

#include <string>

// Names what the test waits for next, and starts the time limit anew. After ten seconds the program
// writes the test and these words to standard error and fails. The environment variable
// TEST_SECONDS sets another limit, 0 none.
void Awaiting(const std::string& what);

#endif
