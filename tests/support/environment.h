// What a test is told by whoever starts it.
#ifndef HALCYRIX_TESTS_SUPPORT_ENVIRONMENT_H
#define HALCYRIX_TESTS_SUPPORT_ENVIRONMENT_H

#include <cstdlib>

// How often, or by which seed, a test with random or repeated cases does its work.
inline int NumberFromEnvironment(const char* name, int unset) {
    const char* text = getenv(name);
    return text != nullptr ? atoi(text) : unset;
}

#endif
