// How much memory a program uses.
#ifndef HALCYRIX_TESTS_SUPPORT_MEMORY_USE_H
#define HALCYRIX_TESTS_SUPPORT_MEMORY_USE_H

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

// The address sanitizer keeps what is freed, so that sizes say nothing about the program.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kMeasuresMemory = false;
#else
constexpr bool kMeasuresMemory = true;
#endif

inline long ResidentKilobytes(pid_t process) {
    long size = 0, resident = 0;
    std::ifstream("/proc/" + std::to_string(process) + "/statm") >> size >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

inline long OpenDescriptors(pid_t process) {
    const std::filesystem::directory_iterator list("/proc/" + std::to_string(process) + "/fd");
    return std::distance(begin(list), end(list));
}

#endif
