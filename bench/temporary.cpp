#include "bench/temporary.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

Temporary::Temporary() {
    char name[] = "/dev/shm/halcyrix-bench-XXXXXX";
    if (mkdtemp(name) == nullptr) abort();
    m_directory = name;
}

Temporary::~Temporary() {
    std::filesystem::remove_all(m_directory);
}

std::string Temporary::File(const std::string& name, const std::string& contents) const {
    const std::string path = Path(name);
    std::ofstream(path, std::ios::binary) << contents;
    return path;
}

std::string Noise(size_t size, uint32_t seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}
