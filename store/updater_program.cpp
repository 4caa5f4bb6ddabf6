#include "store/updater_program.h"

#include <elf.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string_view>

#include "lib/elf_file.h"
#include "lib/whole_file.h"

namespace {

// glibc's own libraries, which every system has.
const std::set<std::string> kSystemLibraries = {
    "ld-linux-x86-64.so.2", "libc.so.6",      "libdl.so.2", "libm.so.6",
    "libpthread.so.0",      "libresolv.so.2", "librt.so.1"};

// A program in memory. Reading beyond its end gives zeros.
class Image {
public:
    explicit Image(std::string_view bytes) : m_bytes(bytes) {
        const auto header = At<Elf64_Ehdr>(0);
        for (uint64_t i = 0; i < header.e_phnum; ++i) {
            m_segments.push_back(At<Elf64_Phdr>(header.e_phoff + i * sizeof(Elf64_Phdr)));
        }
    }

    template <class Record>
    Record At(uint64_t offset) const {
        Record record{};
        if (offset <= m_bytes.size() && sizeof record <= m_bytes.size() - offset) {
            memcpy(&record, m_bytes.data() + offset, sizeof record);
        }
        return record;
    }
    std::string TextAt(uint64_t offset, uint64_t most = UINT64_MAX) const {
        if (offset >= m_bytes.size()) return {};
        const std::string_view rest = m_bytes.substr(offset, most);
        return std::string(rest.substr(0, rest.find('\0')));
    }

    std::vector<std::string> Note() const;
    void ReadNeeds(UpdaterProgram* program) const;

private:
    uint64_t OffsetOf(uint64_t address) const;
    void ReadVersions(uint64_t entry, uint64_t texts, UpdaterProgram* program) const;

    const std::string_view m_bytes;
    std::vector<Elf64_Phdr> m_segments;
};

// Where in the file the bytes are that are loaded at an address.
uint64_t Image::OffsetOf(uint64_t address) const {
    for (const Elf64_Phdr& segment : m_segments) {
        const uint64_t within = address - segment.p_vaddr;
        if (segment.p_type == PT_LOAD && within < segment.p_filesz)
            return segment.p_offset + within;
    }
    return m_bytes.size();
}

std::vector<std::string> Image::Note() const {
    const auto padded = [](uint64_t size) { return (size + 3) / 4 * 4; };
    for (const Elf64_Phdr& segment : m_segments) {
        if (segment.p_type != PT_NOTE) continue;
        const uint64_t size = std::min<uint64_t>(segment.p_filesz, m_bytes.size());
        for (uint64_t at = 0; at < size;) {
            const auto note = At<Elf64_Nhdr>(segment.p_offset + at);
            const uint64_t name = segment.p_offset + at + sizeof note;
            const uint64_t text = name + padded(note.n_namesz);
            at = text + padded(note.n_descsz) - segment.p_offset;
            if (note.n_type != kUpdaterNoteType || TextAt(name, note.n_namesz) != kUpdaterNoteOwner)
                continue;
            std::vector<std::string> lines;
            std::istringstream all(TextAt(text, note.n_descsz));
            for (std::string line; std::getline(all, line);) lines.push_back(line);
            return lines;
        }
    }
    return {};
}

void Image::ReadVersions(uint64_t entry, uint64_t texts, UpdaterProgram* program) const {
    for (;;) {
        const auto need = At<Elf64_Verneed>(entry);
        uint64_t place = entry + need.vn_aux;
        for (unsigned i = 0; i < need.vn_cnt; ++i) {
            const auto version = At<Elf64_Vernaux>(place);
            std::vector<int> numbers(3);
            const int found = sscanf(TextAt(texts + version.vna_name).c_str(), "GLIBC_%d.%d.%d",
                                     &numbers[0], &numbers[1], &numbers[2]);
            numbers.resize(static_cast<size_t>(std::max(found, 0)));
            program->glibc = std::max(program->glibc, numbers);
            if (version.vna_next == 0) break;
            place += version.vna_next;
        }
        if (need.vn_next == 0) return;
        entry += need.vn_next;
    }
}

void Image::ReadNeeds(UpdaterProgram* program) const {
    std::vector<uint64_t> names;
    uint64_t texts = 0, versions = 0;
    for (const Elf64_Phdr& segment : m_segments) {
        if (segment.p_type != PT_DYNAMIC) continue;
        for (uint64_t at = segment.p_offset;; at += sizeof(Elf64_Dyn)) {
            const auto entry = At<Elf64_Dyn>(at);
            if (entry.d_tag == DT_NULL) break;
            if (entry.d_tag == DT_NEEDED) names.push_back(entry.d_un.d_val);
            if (entry.d_tag == DT_STRTAB) texts = OffsetOf(entry.d_un.d_ptr);
            if (entry.d_tag == DT_VERNEED) versions = OffsetOf(entry.d_un.d_ptr);
        }
    }
    for (const uint64_t name : names) {
        const std::string library = TextAt(texts + name);
        if (!kSystemLibraries.contains(library)) program->libraries.insert(library);
    }
    if (versions != 0) ReadVersions(versions, texts, program);
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

std::vector<std::string> HostsOf(const UpdaterProgram& program) {
    return {program.note.begin() + 2, program.note.end()};
}

}  // namespace

std::optional<UpdaterProgram> ReadUpdaterProgram(const std::string& path, std::string* fault) {
    std::string bytes;
    if (!ReadWholeFile(path, &bytes, fault)) return {};
    const Image image(bytes);
    const auto header = image.At<Elf64_Ehdr>(0);
    UpdaterProgram program;
    if (memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) {
        *fault = "it is not an ELF file";
    } else if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_machine != EM_X86_64 ||
               (header.e_type != ET_EXEC && header.e_type != ET_DYN)) {
        *fault = "it is not a program for x86-64";
    } else if (IsTruncatedElf(path)) {
        *fault = "it is incomplete";
    } else if (program.note = image.Note(); program.note.size() < 3) {
        *fault = "it has no note of an updater";
    } else {
        image.ReadNeeds(&program);
        return program;
    }
    return {};
}

std::vector<std::string> CompareUpdaters(const UpdaterProgram& before, const UpdaterProgram& now,
                                         const std::set<std::string>& beside) {
    std::vector<std::string> warnings, libraries;
    if (now.glibc > before.glibc) {
        std::string version;
        for (const int number : now.glibc) {
            version += (version.empty() ? "" : ".") + std::to_string(number);
        }
        warnings.push_back("the updater needs glibc " + version + ", the one before did not");
    }
    for (const std::string& library : now.libraries) {
        if (before.libraries.contains(library) || beside.contains(library)) continue;
        libraries.push_back(library);
    }
    if (!libraries.empty()) {
        warnings.push_back("the updater needs libraries that the one before did not: " +
                           Joined(libraries));
    }
    if (HostsOf(now) != HostsOf(before)) {
        warnings.push_back("the updater names other update hosts (" + Joined(HostsOf(now)) +
                           ") than the one before (" + Joined(HostsOf(before)) + ")");
    }
    return warnings;
}
