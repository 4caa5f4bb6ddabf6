#include "store/source_tree.h"

#include <algorithm>
#include <filesystem>

#include "lib/failure.h"
#include "store/folder.h"

namespace fs = std::filesystem;

namespace {

bool IsSameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// Lists the files of a folder. `prefix` is the folder's path below `root`, with a slash unless it
// is empty. `root` has no links.
void Scan(const std::string& folder, const std::string& prefix, const fs::path& root,
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
            Scan(path, file.path + "/", root, files, problems);
        } else if (S_ISREG(file.status.st_mode)) {
            file.leadsOut = S_ISLNK(link.st_mode) && !IsBelow(fs::canonical(entry, ignored), root);
            files->push_back(std::move(file));
        } else {
            problems->push_back(
                path + ": neither a directory, a regular file nor a link to a regular file");
        }
    }
}

}  // namespace

bool IsSameFile(const struct stat& before, const struct stat& after) {
    // A new link to the file changes the time of its status but not its contents. Publishing makes
    // one when the maker's file is itself a link to a file of the store.
    return before.st_dev == after.st_dev && before.st_ino == after.st_ino &&
           before.st_size == after.st_size && IsSameTime(before.st_mtim, after.st_mtim) &&
           (IsSameTime(before.st_ctim, after.st_ctim) || before.st_nlink != after.st_nlink);
}

bool IsSameTree(const std::vector<SourceFile>& before, const std::vector<SourceFile>& after) {
    return std::ranges::equal(before, after, [](const SourceFile& a, const SourceFile& b) {
        return a.path == b.path && IsSameFile(a.status, b.status);
    });
}

std::vector<SourceFile> ScanTree(const std::string& directory, std::vector<std::string>* problems) {
    std::vector<SourceFile> files;
    std::error_code ignored;
    Scan(directory, "", fs::canonical(directory, ignored), &files, problems);
    std::ranges::sort(files, {}, &SourceFile::path);
    return files;
}
