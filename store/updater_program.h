// The updater's program, as publishing examines it.
#ifndef HALCYRIX_STORE_UPDATER_PROGRAM_H
#define HALCYRIX_STORE_UPDATER_PROGRAM_H

#include <optional>
#include <set>
#include <string>
#include <vector>

struct UpdaterProgram {
    // Of its note (lib/elf_file.h): name, version, update hosts.
    std::vector<std::string> note;
    // The libraries that it loads, without those of glibc.
    std::set<std::string> libraries;
    // The newest version of glibc that it needs, such as {2, 28}.
    std::vector<int> glibc;
};

// Reads a program. Nothing, with the reason in `fault`, unless it is a complete ELF program for
// this machine with an updater's note.
std::optional<UpdaterProgram> ReadUpdaterProgram(const std::string& path, std::string* fault);

// What players with the earlier updater should be warned about, a line each. `beside` has the names
// of the files that are published beside the new program.
std::vector<std::string> CompareUpdaters(const UpdaterProgram& before, const UpdaterProgram& now,
                                         const std::set<std::string>& beside);

#endif
