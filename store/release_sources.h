// The files that a release is made from.
#ifndef HALCYRIX_STORE_RELEASE_SOURCES_H
#define HALCYRIX_STORE_RELEASE_SOURCES_H

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
    std::string path;  // where the maker keeps it
    struct stat status;
    bool patchable = true;  // the updater can make the temporary file that patching takes
};

// Several components, each in a directory tree of its own.
class ReleaseSources {
public:
    // Lists the files. What cannot be published is told in `problems`, and what can be but hardly
    // should in `warnings`, a line each.
    void Scan(const std::vector<ComponentSource>& components, std::vector<std::string>* problems,
              std::vector<std::string>* warnings);

    // The directories that are not as Scan() found them any more, a line each.
    std::vector<std::string> Changes() const;

    // Sorted by name.
    const std::vector<ReleaseSource>& Files() const { return m_files; }

private:
    void ScanComponent(const ComponentSource& component, std::vector<std::string>* problems,
                       GroupedWarnings* warnings);
    void CheckLocalPaths(std::vector<std::string>* problems, std::vector<std::string>* warnings);
    void FindUnpatchable(GroupedWarnings* warnings);

    std::vector<ComponentSource> m_components;
    std::vector<std::vector<SourceFile>> m_trees;  // of each component
    std::vector<ReleaseSource> m_files;
};

#endif
