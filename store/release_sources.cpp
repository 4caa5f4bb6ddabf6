#include "store/release_sources.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>

#include "lib/server_name.h"
#include "store/names.h"
#include "store/release.h"
#include "update/client_limits.h"

namespace {

// The protocol has 32 bits for a length.
constexpr int64_t kMaxFileSize = 0xFFFFFFFF;

bool CheckComponents(const std::vector<ComponentSource>& components, std::string* error) {
    std::set<std::string> names;
    for (const ComponentSource& component : components) {
        std::string fault = ComponentFault(component.component);
        if (!names.insert(component.component).second) fault = "is given twice";
        if (fault.empty()) continue;
        *error = "component \"" + component.component + "\" " + fault;
        return false;
    }
    return true;
}

bool CheckFile(const ReleaseSource& file, std::string* error) {
    std::string fault = FileNameFault(file.name);
    if (fault.empty() && file.status.st_size > kMaxFileSize) fault = "has 4 GiB or more";
    if (!fault.empty()) *error = file.path + ": " + fault;
    return fault.empty();
}

// Whether updaters take a file list of this size. Each file may come to them as a patch, too.
bool CheckSize(const std::vector<ReleaseSource>& files, std::string* error) {
    const size_t patchName = Release::DownloadName(ReleasePatch{}).size();
    size_t bytes = 0;
    for (const ReleaseSource& file : files) bytes += file.name.size() + patchName;
    if (files.size() <= kMaxListedFiles && bytes <= kMaxNameBytes) return true;
    *error = std::to_string(files.size()) + " files: more than the updater takes";
    return false;
}

}  // namespace

bool ReleaseSources::Scan(const std::vector<ComponentSource>& components,
                          std::vector<std::string>* warnings, std::string* error) {
    m_components = components;
    if (!CheckComponents(components, error)) return false;
    for (const ComponentSource& component : components) {
        std::vector<SourceFile> tree;
        if (!ScanTree(component.directory, &tree, error)) return false;
        if (tree.empty()) warnings->push_back(component.directory + ": there are no files");
        for (const SourceFile& file : tree) {
            m_files.push_back({component.component + "/" + file.path,
                               component.directory + "/" + file.path, file.status});
            if (!CheckFile(m_files.back(), error)) return false;
        }
        m_trees.push_back(std::move(tree));
    }
    std::sort(m_files.begin(), m_files.end(),
              [](const ReleaseSource& a, const ReleaseSource& b) { return a.name < b.name; });
    return CheckSize(m_files, error) && CheckLocalPaths(warnings, error);
}

bool ReleaseSources::CheckLocalPaths(std::vector<std::string>* warnings, std::string* error) const {
    std::map<std::string, const ReleaseSource*> byPath;
    for (const ReleaseSource& file : m_files) {
        const auto [place, added] = byPath.emplace(LocalPath(file.name), &file);
        if (added) continue;
        warnings->push_back(place->second->name + " and " + file.name +
                            " are the same file to a player who has both components");
    }
    for (const auto& [path, file] : byPath) {
        const auto temporary = byPath.find(path + ".tmp");
        if (temporary != byPath.end()) {
            *error = temporary->second->path + ": the updater uses this name itself, to patch " +
                     file->name;
            return false;
        }
        for (size_t slash = path.find('/'); slash != std::string::npos;
             slash = path.find('/', slash + 1)) {
            const auto parent = byPath.find(path.substr(0, slash));
            if (parent == byPath.end()) continue;
            warnings->push_back(parent->second->name + " and " + file->name +
                                " cannot both be on a player's disk");
        }
    }
    return true;
}

bool ReleaseSources::AreUnchanged(std::string* error) const {
    for (size_t i = 0; i < m_components.size(); ++i) {
        std::vector<SourceFile> tree;
        if (!ScanTree(m_components[i].directory, &tree, error)) return false;
        if (IsSameTree(m_trees[i], tree)) continue;
        *error = m_components[i].directory + ": changed while it was read";
        return false;
    }
    return true;
}
