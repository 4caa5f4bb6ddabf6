// The check of a whole store.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lib/work_observer.h"

struct CheckReport {
    std::vector<std::string> problems;
    std::vector<std::string> advice;  // for each release with problems
    size_t releases = 0;
    size_t files = 0;  // patches included
    uint64_t bytes = 0;
};

// Compares every file of every release with its manifest, by length and checksum. Also finds files
// that are in no manifest, and numbers and versions that are used twice.
CheckReport CheckStore(const std::string& directory, WorkObserver* observer);
