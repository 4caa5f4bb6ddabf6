#include "store/source_tree.h"

#include <algorithm>
#include <filesystem>

#include "lib/whole_file.h"

namespace fs = std::filesystem;

namespace {

bool IsSameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// `prefix` is the path of `folder` below the root, with a slash unless it is empty.
bool ScanFolder(const std::string& folder, const std::string& prefix,
                std::vector<SourceFile>* files, std::string* error) {
    std::error_code fault;
    for (fs::directory_iterator entry(folder, fault), end; !fault && entry != end;
         entry.increment(fault)) {
        const std::string name = entry->path().filename().string();
        const std::string path = entry->path().string();
        struct stat link;
        SourceFile file{prefix + name, {}};
        if (lstat(path.c_str(), &link) != 0 || stat(path.c_str(), &file.status) != 0) {
            *error = SystemError(path);
            return false;
        }
        if (S_ISDIR(link.st_mode)) {
            if (!ScanFolder(path, file.path + "/", files, error)) return false;
        } else if (S_ISREG(file.status.st_mode)) {
            files->push_back(std::move(file));
        } else {
            *error = path + ": neither a directory, a regular file nor a link to a regular file";
            return false;
        }
    }
    if (fault) *error = folder + ": " + fault.message();
    return !fault;
}

}  // namespace

bool IsSameFile(const struct stat& before, const struct stat& after) {
    // A change of the number of links changes the status too, and is none of the contents: a file
    // of the tree may be a link to a file of the store that is about to be linked once more.
    return before.st_dev == after.st_dev && before.st_ino == after.st_ino &&
           before.st_size == after.st_size && IsSameTime(before.st_mtim, after.st_mtim) &&
           (IsSameTime(before.st_ctim, after.st_ctim) || before.st_nlink != after.st_nlink);
}

bool IsSameTree(const std::vector<SourceFile>& before, const std::vector<SourceFile>& after) {
    return std::equal(before.begin(), before.end(), after.begin(), after.end(),
                      [](const SourceFile& a, const SourceFile& b) {
                          return a.path == b.path && IsSameFile(a.status, b.status);
                      });
}

bool ScanTree(const std::string& directory, std::vector<SourceFile>* files, std::string* error) {
    files->clear();
    if (!ScanFolder(directory, "", files, error)) return false;
    std::sort(files->begin(), files->end(),
              [](const SourceFile& a, const SourceFile& b) { return a.path < b.path; });
    return true;
}
