#include "store/release_sources.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>

#include "lib/failure.h"
#include "lib/server_name.h"
#include "store/folder.h"
#include "store/names.h"
#include "store/release.h"
#include "update/client_limits.h"

namespace fs = std::filesystem;

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

bool IsSameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// Lists the files of a folder. `prefix` is the folder's path below `root`, with a slash unless it
// is empty. `root` has no links.
void ScanFolder(const std::string& folder, const std::string& prefix, const fs::path& root,
                std::vector<SourceFile>* files, std::vector<std::string>* problems) {
    std::vector<fs::path> entries;
    std::string error;
    if (!ListFolder(folder, &entries, &error)) problems->push_back(error);
    for (const fs::path& entry : entries) {
        const std::string path = entry.string();
        std::error_code ignored;
        struct stat link;
        SourceFile file{prefix + entry.filename().string(), {}, false};
        if (lstat(path.c_str(), &link) != 0 || stat(path.c_str(), &file.status) != 0) {
            problems->push_back(SystemError(path));
        } else if (S_ISDIR(link.st_mode)) {
            ScanFolder(path, file.path + "/", root, files, problems);
        } else if (S_ISREG(file.status.st_mode)) {
            file.leadsOut = S_ISLNK(link.st_mode) && !IsBelow(fs::canonical(entry, ignored), root);
            files->push_back(std::move(file));
        } else {
            problems->push_back(
                path + ": neither a directory, a regular file nor a link to a regular file");
        }
    }
}

// Lists the files below a directory, sorted by path. Puts a line in `problems` for whatever cannot
// be read, or is neither a directory, a regular file nor a link to a regular file.
std::vector<SourceFile> ScanTree(const std::string& directory, std::vector<std::string>* problems) {
    std::vector<SourceFile> files;
    std::error_code ignored;
    ScanFolder(directory, "", fs::canonical(directory, ignored), &files, problems);
    std::ranges::sort(files, {}, &SourceFile::path);
    return files;
}

}  // namespace

bool IsSameFile(const struct stat& before, const struct stat& after) {
    // A new link to the file changes the time of its status but not its contents. Publishing makes
    // one when the maker's file is itself a link to a file of the store.
    return before.st_dev == after.st_dev && before.st_ino == after.st_ino &&
           before.st_size == after.st_size && IsSameTime(before.st_mtim, after.st_mtim) &&
           (IsSameTime(before.st_ctim, after.st_ctim) || before.st_nlink != after.st_nlink);
}

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
        const auto now = ScanTree(m_components[i].directory, &changes);
        const auto same = [](const SourceFile& a, const SourceFile& b) {
            return a.path == b.path && IsSameFile(a.status, b.status);
        };
        if (std::ranges::equal(m_trees[i], now, same)) continue;
        changes.push_back(m_components[i].directory + ": changed while it was read");
    }
    return changes;
}
