#include "store/release_sources.h"

#include <algorithm>
#include <climits>
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

bool IsHidden(const std::string& path) {
    return path.starts_with('.') || path.find("/.") != std::string::npos;
}

// Whether updaters refuse a file list of this size. They keep a name for each patch, too.
bool IsTooLarge(const std::vector<ReleaseSource>& files) {
    const size_t patchName = Release::DownloadName(ReleasePatch{}).size();
    size_t bytes = 0;
    for (const ReleaseSource& file : files) bytes += file.name.size() + patchName;
    return files.size() > kMaxListedFiles || bytes > kMaxNameBytes;
}

}  // namespace

void ReleaseSources::Scan(const std::vector<ComponentSource>& components,
                          std::vector<std::string>* problems, WorkObserver* observer) {
    m_components = components;
    std::set<std::string> names;
    GroupedWarnings grouped;
    for (const ComponentSource& component : components) {
        std::string fault = ComponentFault(component.component);
        if (!names.insert(component.component).second) fault = "is given twice";
        if (!fault.empty())
            problems->push_back("component \"" + component.component + "\" " + fault);
        ScanComponent(component, problems, &grouped);
    }
    std::ranges::sort(m_files, {}, &ReleaseSource::name);
    if (IsTooLarge(m_files)) {
        problems->push_back(std::to_string(m_files.size()) + " files: more than the updater takes");
    }
    CheckLocalPaths(problems, observer);
    FindUnpatchable(&grouped);
    grouped.Tell(observer);
}

void ReleaseSources::ScanComponent(const ComponentSource& component,
                                   std::vector<std::string>* problems, GroupedWarnings* warnings) {
    const bool isGame = component.component == kGameComponent;
    const bool isUpdater = component.component == kUpdaterComponent;
    const std::string program = isGame ? kGameProgram : isUpdater ? kUpdaterProgram : "";
    bool hasProgram = false;

    const size_t before = problems->size();
    m_trees.push_back(ScanTree(component.directory, problems));
    for (const SourceFile& file : m_trees.back()) {
        const std::string name = component.component + "/" + file.path;
        m_files.push_back({name, component.directory + "/" + file.path, file.status});
        std::string fault = FileNameFault(name);
        if (fault.empty() && file.status.st_size > kMaxFileSize) fault = "has 4 GiB or more";
        if (!fault.empty()) problems->push_back(m_files.back().path + ": " + fault);

        const bool isProgram = file.path == program;
        hasProgram = hasProgram || isProgram;
        if ((file.status.st_mode & 0111) != 0 && !isProgram) {
            warnings->Add("executables, which players get as 0644, not to be run", name);
        }
        if (IsHidden(file.path)) warnings->Add("names that begin with a dot", name);
        if (file.leadsOut) {
            warnings->Add("links that lead out of " + component.directory, name);
        }
    }
    if (m_trees.back().empty() && problems->size() == before) {
        problems->push_back(component.directory + ": component \"" + component.component +
                            "\" would be without files");
    } else if (!program.empty() && !hasProgram) {
        warnings->Add("there is no file " + program + ", which players run, in",
                      component.component);
    }
}

void ReleaseSources::CheckLocalPaths(std::vector<std::string>* problems, WorkObserver* observer) {
    std::map<std::string, const ReleaseSource*> byPath;
    for (const ReleaseSource& file : m_files) {
        const auto [place, added] = byPath.emplace(LocalPath(file.name), &file);
        if (added) continue;
        observer->Warn(place->second->name + " and " + file.name +
                       " are the same file to a player who has both components");
    }
    for (const auto& [path, file] : byPath) {
        const auto temporary = byPath.find(path + ".tmp");
        if (temporary != byPath.end()) {
            problems->push_back(temporary->second->path +
                                ": the updater uses this name itself, to patch " + file->name);
        }
        for (size_t slash = path.find('/'); slash != std::string::npos;
             slash = path.find('/', slash + 1)) {
            const auto parent = byPath.find(path.substr(0, slash));
            if (parent == byPath.end()) continue;
            observer->Warn(parent->second->name + " and " + file->name +
                           " cannot both be on a player's disk");
        }
    }
}

void ReleaseSources::FindUnpatchable(GroupedWarnings* warnings) {
    std::set<std::string> paths;
    for (const ReleaseSource& file : m_files) paths.insert(LocalPath(file.name));
    for (ReleaseSource& file : m_files) {
        const std::string temporary = LocalPath(file.name) + ".tmp";
        const auto below = paths.lower_bound(temporary + "/");
        const bool isFolder = below != paths.end() && below->starts_with(temporary + "/");
        const size_t nameSize = temporary.size() - (temporary.rfind('/') + 1);
        file.patchable = !isFolder && nameSize <= NAME_MAX && temporary.size() < PATH_MAX;
        if (file.patchable) continue;
        warnings->Add("never patched, since the updater cannot make a file NAME.tmp", file.name);
    }
}

std::vector<std::string> ReleaseSources::Changes() const {
    std::vector<std::string> changes;
    for (size_t i = 0; i < m_components.size(); ++i) {
        if (IsSameTree(m_trees[i], ScanTree(m_components[i].directory, &changes))) continue;
        changes.push_back(m_components[i].directory + ": changed while it was read");
    }
    return changes;
}
