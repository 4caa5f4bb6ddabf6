#include "lib/elf_file.h"

#include <elf.h>

#include <algorithm>
#include <cstring>

#include "lib/file_helpers.h"
#include "lib/stream.h"

namespace {

template <class Record>
bool ReadRecord(FILE* file, uint64_t offset, Record* record) {
    return ReadAt(file, static_cast<int64_t>(offset), reinterpret_cast<uint8_t*>(record),
                  sizeof *record) == sizeof *record;
}

// Whether everything that the system loads is there. It does not load sections, which may be
// missing.
template <class Header, class Segment>
bool LoadsWhole(FILE* file, uint64_t size) {
    Header header;
    if (!ReadRecord(file, 0, &header)) return false;
    for (uint64_t i = 0; i < header.e_phnum; ++i) {
        Segment segment;
        if (!ReadRecord(file, header.e_phoff + i * header.e_phentsize, &segment)) return false;
        if (segment.p_type != PT_LOAD || segment.p_filesz == 0) continue;
        if (segment.p_offset > size || segment.p_filesz > size - segment.p_offset) return false;
    }
    return true;
}

}  // namespace

bool IsTruncatedElf(const std::string& path) {
    const Stream file = OpenForReading(path);
    if (!file) return false;
    const auto size = static_cast<uint64_t>(StreamSize(file.get()));
    unsigned char ident[EI_NIDENT] = {};
    const size_t got = ReadAt(file.get(), 0, ident, sizeof ident);
    if (memcmp(ident, ELFMAG, std::min<size_t>(got, SELFMAG)) != 0) return false;
    if (got < sizeof ident) return true;
    if (ident[EI_DATA] != ELFDATA2LSB) return false;  // not a program of this machine
    switch (ident[EI_CLASS]) {
        case ELFCLASS64: return !LoadsWhole<Elf64_Ehdr, Elf64_Phdr>(file.get(), size);
        case ELFCLASS32: return !LoadsWhole<Elf32_Ehdr, Elf32_Phdr>(file.get(), size);
        default: return false;
    }
}
