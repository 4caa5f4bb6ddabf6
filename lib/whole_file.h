// Files as wholes: read, written, compared, copied, mapped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "lib/failure.h"
#include "lib/work_observer.h"

[[nodiscard]] bool ReadWholeFile(const std::string& path, std::string* text, std::string* error);

// Creates or truncates the file.
[[nodiscard]] bool WriteWholeFile(const std::string& path, const std::string& text,
                                  std::string* error);

// Whether both can be read and hold the same bytes.
bool HaveSameContents(const std::string& one, const std::string& other);

// Copies `from` to `to`, which must not exist. Shares the blocks where the file system can.
[[nodiscard]] bool CopyFile(const std::string& from, const std::string& to, WorkObserver* observer,
                            std::string* error);

// A read-only mapping of a file. The file must not shrink meanwhile: reading a missing byte ends
// the program.
class MappedFile {
public:
    MappedFile() = default;
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    // Maps a regular file. Call once on a new object.
    [[nodiscard]] bool Open(const std::string& path, std::string* error);

    // Gives back the memory of the bytes between, until they are looked at again. `begin` is a
    // multiple of 1 MiB.
    void Release(size_t begin, size_t end);

    const uint8_t* Data() const { return m_data; }  // null for an empty file
    size_t Size() const { return m_size; }

private:
    const uint8_t* m_data = nullptr;
    size_t m_size = 0;
};
