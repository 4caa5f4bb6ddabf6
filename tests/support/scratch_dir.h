// A directory of its own for a test, reading and writing files, and a limit on their size.
#pragma once

#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

// Makes an empty directory the working directory. In the end it goes back and removes the
// directory.
class ScratchDir {
public:
    ScratchDir() {
        if (mkdtemp(m_path.data()) == nullptr) abort();
        std::filesystem::current_path(m_path);
    }
    ~ScratchDir() {
        std::error_code ignored;
        std::filesystem::current_path(m_before);
        std::filesystem::remove_all(m_path, ignored);
    }

    std::filesystem::path Path() const { return m_path; }

private:
    const std::filesystem::path m_before = std::filesystem::current_path();
    std::string m_path = std::filesystem::temp_directory_path() / "halcyrix-test-XXXXXX";
};

// A missing file reads as "(missing)". Writing makes the directories of the path.
inline std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "(missing)";
}
inline void WriteFile(const std::filesystem::path& path, const std::string& contents) {
    if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
}

// Pseudo-random contents, the same in every run.
inline std::string SeededBytes(size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

// A disk that is full when a file reaches this size, for this process and those that it starts.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{std::min(bytes, m_before.rlim_max), m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &m_before); }

private:
    rlimit m_before;
};
