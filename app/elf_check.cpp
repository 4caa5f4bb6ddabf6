#include "app/elf_check.h"

#include <elf.h>

#include <cstdint>
#include <cstring>

#include "lib/stream.h"

namespace {

bool ReadAt(FILE* file, uint64_t offset, void* data, size_t length) {
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0 &&
           fread(data, 1, length, file) == length;
}

bool Fits(uint64_t offset, uint64_t length, uint64_t size) {
    return offset <= size && length <= size - offset;
}

template <class Header, class Segment>
bool IsWhole(FILE* file, uint64_t size) {
    Header header;
    if (!ReadAt(file, 0, &header, sizeof header) ||
        !Fits(header.e_phoff, uint64_t{header.e_phnum} * header.e_phentsize, size) ||
        !Fits(header.e_shoff, uint64_t{header.e_shnum} * header.e_shentsize, size)) {
        return false;
    }
    for (uint64_t i = 0; i < header.e_phnum; ++i) {
        Segment segment;
        if (!ReadAt(file, header.e_phoff + i * header.e_phentsize, &segment, sizeof segment) ||
            !Fits(segment.p_offset, segment.p_filesz, size)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool IsTruncatedElf(const std::string& path) {
    const Stream file = OpenForReading(path);
    if (!file) return false;
    const auto size = static_cast<uint64_t>(StreamSize(file.get()));

    unsigned char ident[EI_NIDENT] = {};
    const size_t got = fread(ident, 1, sizeof ident, file.get());
    if (memcmp(ident, ELFMAG, SELFMAG) != 0) return false;
    if (got < sizeof ident) return true;
    if (ident[EI_DATA] != ELFDATA2LSB) return false;  // no program of this machine
    if (ident[EI_CLASS] == ELFCLASS64) return !IsWhole<Elf64_Ehdr, Elf64_Phdr>(file.get(), size);
    if (ident[EI_CLASS] == ELFCLASS32) return !IsWhole<Elf32_Ehdr, Elf32_Phdr>(file.get(), size);
    return false;
}
