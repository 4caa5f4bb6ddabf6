// The bytes of a file, mapped into memory.
#ifndef HALCYRIX_LIB_MAPPED_FILE_H
#define HALCYRIX_LIB_MAPPED_FILE_H

#include <cstddef>
#include <cstdint>
#include <string>

// A read-only mapping, which lasts as long as the object. Nobody may cut the file short meanwhile:
// touching a byte that is gone ends the program.
class MappedFile {
public:
    MappedFile() = default;
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    // Maps a regular file. Call once on a new object.
    [[nodiscard]] bool Open(const std::string& path, std::string* error);

    // Gives the memory of the bytes before `end` back, until they are looked at again.
    void Release(size_t end);

    const uint8_t* Data() const { return m_data; }  // null for an empty file
    size_t Size() const { return m_size; }

private:
    const uint8_t* m_data = nullptr;
    size_t m_size = 0;
    size_t m_released = 0;
};

#endif
