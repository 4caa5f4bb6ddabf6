// The files that a release is made from.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "lib/work_observer.h"

// A file under a directory, symbolic links followed.
struct SourceFile {
    std::string path;  // relative to the directory
    struct stat status;
    bool leadsOut;  // a link to a file that is not below the directory
};

// Whether both are of one file that did not change in between.
bool IsSameFile(const struct stat& before, const struct stat& after);

struct ComponentSource {
    std::string component;
    std::string directory;
};

struct ReleaseSource {
    std::string name;  // "component/path"
    std::string path;  // on the maker's disk
    struct stat status;
    bool patchable = true;  // the updater can make the temporary file that patching takes
};

// Collects faults of names. Warns of each fault once, with the first of its names.
class GroupedWarnings {
public:
    void Add(const std::string& fault, const std::string& name) { m_names[fault].push_back(name); }

    void Tell(WorkObserver* observer) const {
        constexpr size_t kNamed = 3;
        for (const auto& [fault, names] : m_names) {
            std::string line = fault + ": " + names.front();
            for (size_t i = 1; i < names.size() && i < kNamed; ++i) line += ", " + names[i];
            if (names.size() > kNamed) {
                line += " and " + std::to_string(names.size() - kNamed) + " more";
            }
            observer->Warn(line);
        }
    }

private:
    std::map<std::string, std::vector<std::string>> m_names;
};

// The files of all components, each of which is a directory tree.
class ReleaseSources {
public:
    // Lists the files. Puts a line in `problems` for each fault that forbids to publish, and warns
    // of what may surprise players.
    void Scan(const std::vector<ComponentSource>& components, std::vector<std::string>* problems,
              WorkObserver* observer);

    // A line for each directory that has changed since Scan().
    std::vector<std::string> Changes() const;

    // Sorted by name.
    const std::vector<ReleaseSource>& Files() const { return m_files; }

private:
    void ScanComponent(const ComponentSource& component, std::vector<std::string>* problems,
                       GroupedWarnings* warnings);
    void CheckLocalPaths(std::vector<std::string>* problems, WorkObserver* observer);
    void FindUnpatchable(GroupedWarnings* warnings);

    std::vector<ComponentSource> m_components;
    std::vector<std::vector<SourceFile>> m_trees;  // of each component
    std::vector<ReleaseSource> m_files;
};
