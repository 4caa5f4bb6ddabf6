#include "store/updater_program.h"

#include <gelf.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>
#include <memory>
#include <sstream>

#include "lib/elf_file.h"
#include "lib/failure.h"
#include "lib/stream.h"
#include "store/names.h"

namespace {

// glibc's own libraries, which every system has.
const std::set<std::string> kSystemLibraries = {
    "ld-linux-x86-64.so.2", "libc.so.6",      "libdl.so.2", "libm.so.6",
    "libpthread.so.0",      "libresolv.so.2", "librt.so.1"};

using OwnedElf = std::unique_ptr<Elf, decltype(&elf_end)>;

// The lines of an updater's note; none when it is another note.
std::vector<std::string> LinesOfNote(Elf_Data* data) {
    std::vector<std::string> lines;
    GElf_Nhdr note;
    size_t name, text;
    for (size_t at = 0; (at = gelf_getnote(data, at, &note, &name, &text)) != 0;) {
        const auto* bytes = static_cast<const char*>(data->d_buf);
        if (note.n_type != kUpdaterNoteType || note.n_namesz != sizeof kUpdaterNoteOwner ||
            memcmp(bytes + name, kUpdaterNoteOwner, sizeof kUpdaterNoteOwner) != 0) {
            continue;
        }
        std::istringstream all(std::string(bytes + text, strnlen(bytes + text, note.n_descsz)));
        for (std::string line; std::getline(all, line);) lines.push_back(line);
    }
    return lines;
}

std::set<std::string> NeededLibraries(Elf* elf, Elf_Data* data, size_t texts) {
    std::set<std::string> libraries;
    GElf_Dyn entry;
    for (int i = 0; gelf_getdyn(data, i, &entry) != nullptr; ++i) {
        const char* name =
            entry.d_tag == DT_NEEDED ? elf_strptr(elf, texts, entry.d_un.d_val) : nullptr;
        if (name != nullptr && !kSystemLibraries.contains(name)) libraries.insert(name);
    }
    return libraries;
}

// The versions of glibc are among the texts that the dynamic linker uses.
std::string NeededGlibc(const Elf_Data* texts) {
    std::string newest;
    if (texts == nullptr || texts->d_buf == nullptr) return newest;
    const std::string all(static_cast<const char*>(texts->d_buf), texts->d_size);
    for (size_t at = 0; (at = all.find("GLIBC_", at)) != all.npos;) {
        const char* version = &all[at += strlen("GLIBC_")];
        if (isdigit(*version) && strverscmp(version, newest.c_str()) > 0) newest = version;
    }
    return newest;
}

UpdaterProgram ReadSections(Elf* elf) {
    UpdaterProgram program;
    GElf_Shdr header;
    for (Elf_Scn* section = nullptr; (section = elf_nextscn(elf, section)) != nullptr;) {
        Elf_Data* data = elf_getdata(section, nullptr);
        if (data == nullptr || gelf_getshdr(section, &header) == nullptr) continue;
        if (header.sh_type == SHT_NOTE && program.note.empty()) program.note = LinesOfNote(data);
        if (header.sh_type != SHT_DYNAMIC) continue;
        program.libraries = NeededLibraries(elf, data, header.sh_link);
        program.glibc = NeededGlibc(elf_getdata(elf_getscn(elf, header.sh_link), nullptr));
    }
    return program;
}

std::vector<std::string> HostsOf(const UpdaterProgram& program) {
    return {program.note.begin() + 2, program.note.end()};
}

}  // namespace

std::optional<UpdaterProgram> ReadUpdaterProgram(const std::string& path, std::string* fault) {
    const Stream file = OpenForReading(path);
    if (!file) return Fail(fault, SystemError(path));
    elf_version(EV_CURRENT);
    const OwnedElf elf(elf_begin(fileno(file.get()), ELF_C_READ, nullptr), elf_end);
    GElf_Ehdr header;
    if (elf_kind(elf.get()) != ELF_K_ELF || gelf_getehdr(elf.get(), &header) == nullptr) {
        return Fail(fault, "it is not an ELF file");
    }
    if (gelf_getclass(elf.get()) != ELFCLASS64 || header.e_machine != EM_X86_64 ||
        (header.e_type != ET_EXEC && header.e_type != ET_DYN)) {
        return Fail(fault, "it is not a program for x86-64");
    }
    if (IsTruncatedElf(path)) return Fail(fault, "it is incomplete");
    UpdaterProgram program = ReadSections(elf.get());
    if (program.note.size() < 3) return Fail(fault, "it has no note of an updater");
    return program;
}

void CompareUpdaters(const UpdaterProgram& before, const UpdaterProgram& now,
                     const std::set<std::string>& beside, WorkObserver* observer) {
    if (strverscmp(now.glibc.c_str(), before.glibc.c_str()) > 0) {
        observer->Warn("the updater needs glibc " + now.glibc + ", the one before did not");
    }
    std::vector<std::string> libraries;
    std::ranges::copy_if(now.libraries, std::back_inserter(libraries),
                         [&](const std::string& name) {
                             return !before.libraries.contains(name) && !beside.contains(name);
                         });
    if (!libraries.empty()) {
        observer->Warn("the updater needs libraries that the one before did not: " +
                       Joined(libraries, ", "));
    }
    if (HostsOf(now) != HostsOf(before)) {
        observer->Warn("the updater names other update hosts (" + Joined(HostsOf(now), ", ") +
                       ") than the one before (" + Joined(HostsOf(before), ", ") + ")");
    }
}
