// The files that a release is made from.
#ifndef HALCYRIX_STORE_RELEASE_SOURCES_H
#define HALCYRIX_STORE_RELEASE_SOURCES_H

#include <string>
#include <vector>

#include "store/source_tree.h"

struct ComponentSource {
    std::string component;
    std::string directory;
};

struct ReleaseSource {
    std::string name;  // "component/path"
    std::string path;  // where the maker keeps it
    struct stat status;
};

// Several components, each in a directory tree of its own.
class ReleaseSources {
public:
    // Lists the files. False, with the reason in `error`, when there is something that cannot be
    // published. Things that can, but hardly should, are told in `warnings`.
    [[nodiscard]] bool Scan(const std::vector<ComponentSource>& components,
                            std::vector<std::string>* warnings, std::string* error);

    // Whether the trees are still as Scan() found them.
    [[nodiscard]] bool AreUnchanged(std::string* error) const;

    // Sorted by name.
    const std::vector<ReleaseSource>& Files() const { return m_files; }

private:
    bool CheckLocalPaths(std::vector<std::string>* warnings, std::string* error) const;

    std::vector<ComponentSource> m_components;
    std::vector<std::vector<SourceFile>> m_trees;  // of each component
    std::vector<ReleaseSource> m_files;
};

#endif
