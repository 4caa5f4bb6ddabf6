// Contents that look random and are the same in every run.
#ifndef HALCYRIX_TESTS_SUPPORT_SEEDED_H
#define HALCYRIX_TESTS_SUPPORT_SEEDED_H

#include <cstddef>
#include <random>
#include <string>

inline std::string SeededBytes(size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

#endif
