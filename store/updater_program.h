// Examines the program that is published as the updater.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lib/work_observer.h"

struct UpdaterProgram {
    std::vector<std::string> note;    // name, version and update hosts (lib/elf_file.h)
    std::set<std::string> libraries;  // that it needs, without those of glibc
    std::string glibc;                // the version that it needs, such as "2.28"
};

// Reads a program. Nothing, with the reason in `fault`, unless it is a complete ELF program for
// this machine with an updater's note.
std::optional<UpdaterProgram> ReadUpdaterProgram(const std::string& path, std::string* fault);

// Warns of each difference that may keep players from running or using the new updater. `beside`
// has the names of the files that are published with it.
void CompareUpdaters(const UpdaterProgram& before, const UpdaterProgram& now,
                     const std::set<std::string>& beside, WorkObserver* observer);
