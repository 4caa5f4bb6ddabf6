// An end to every wait.
#ifndef HALCYRIX_TESTS_SUPPORT_AWAIT_H
#define HALCYRIX_TESTS_SUPPORT_AWAIT_H

#include <string>

// Says what the test is going to wait for. Ten seconds later the test program fails with these
// words, unless the test has ended or waits for something else by then. What takes longer in all
// says so at each of its steps.
void Awaiting(const std::string& what);

#endif
