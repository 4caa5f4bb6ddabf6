// The files that a release is made from.
#pragma once

#include <string>
#include <vector>

#include "store/grouped_warnings.h"
#include "store/source_tree.h"

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
