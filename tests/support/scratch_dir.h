// A directory of its own for a test, files to put there, and room for them.
#ifndef HALCYRIX_TESTS_SUPPORT_SCRATCH_DIR_H
#define HALCYRIX_TESTS_SUPPORT_SCRATCH_DIR_H

#include <filesystem>
#include <string>

// Makes an empty directory the working directory; goes back and removes it with all its contents in
// the end.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

private:
    std::filesystem::path m_before;
    std::filesystem::path m_path;
};

// Whole files; a missing one reads as "(missing)". Writing makes the directories of the path.
std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::string& contents);

// As if the disk were full where a file reaches this size, for this process and those it starts.
class FileSizeLimit {
public:
    explicit FileSizeLimit(size_t bytes);
    ~FileSizeLimit();
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
};

// Contents that look random and are the same in every run.
std::string SeededBytes(size_t size, unsigned seed);

#endif
