// The check of a whole store.
#ifndef HALCYRIX_STORE_CHECKER_H
#define HALCYRIX_STORE_CHECKER_H

#include <cstdint>
#include <string>
#include <vector>

struct CheckReport {
    std::vector<std::string> problems;
    std::vector<std::string> advice;  // what to do about each release that has some
    size_t releases = 0;
    size_t files = 0;  // patches included
    uint64_t bytes = 0;
};

// Reads every byte of every release and compares it with the manifests; looks for files that no
// manifest knows, and for numbers and versions that are used twice.
CheckReport CheckStore(const std::string& directory);

#endif
