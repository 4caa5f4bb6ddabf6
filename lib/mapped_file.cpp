#include "lib/mapped_file.h"

#include <sys/mman.h>

#include "lib/stream.h"
#include "lib/whole_file.h"

MappedFile::~MappedFile() {
    if (m_data != nullptr) munmap(const_cast<uint8_t*>(m_data), m_size);
}

bool MappedFile::Open(const std::string& path, std::string* error) {
    const Stream file = OpenForReading(path);
    if (!file) {
        *error = SystemError(path);
        return false;
    }
    const auto size = static_cast<size_t>(StreamSize(file.get()));
    if (size == 0) return true;
    void* data = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fileno(file.get()), 0);
    if (data == MAP_FAILED) {
        *error = SystemError(path);
        return false;
    }
    m_data = static_cast<const uint8_t*>(data);
    m_size = size;
    return true;
}

void MappedFile::Release(size_t end) {
    constexpr size_t kAtOnce = size_t{1} << 20;  // a multiple of any page size
    end -= end % kAtOnce;
    if (end <= m_released) return;
    madvise(const_cast<uint8_t*>(m_data) + m_released, end - m_released, MADV_DONTNEED);
    m_released = end;
}
