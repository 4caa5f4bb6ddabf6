// Files for measurements, on a file system in memory.
#ifndef HALCYRIX_BENCH_TEMPORARY_H
#define HALCYRIX_BENCH_TEMPORARY_H

#include <cstddef>
#include <cstdint>
#include <string>

// A directory of its own in /dev/shm, removed with its files in the end.
class Temporary {
public:
    Temporary();
    ~Temporary();
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;

    std::string Path(const std::string& name) const { return m_directory + "/" + name; }
    // Writes a file; returns its path.
    std::string File(const std::string& name, const std::string& contents) const;

private:
    std::string m_directory;
};

// `size` bytes that depend on the seed only.
std::string Noise(size_t size, uint32_t seed);

#endif
