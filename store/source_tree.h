// The maker's files, as they are found in a directory.
#ifndef HALCYRIX_STORE_SOURCE_TREE_H
#define HALCYRIX_STORE_SOURCE_TREE_H

#include <sys/stat.h>

#include <string>
#include <vector>

// A file under the directory, symbolic links followed.
struct SourceFile {
    std::string path;  // relative to the directory
    struct stat status;
};

// Whether the two readings are of one file that nobody has touched in between.
bool IsSameFile(const struct stat& before, const struct stat& after);
bool IsSameTree(const std::vector<SourceFile>& before, const std::vector<SourceFile>& after);

// Lists the files below a directory, sorted by path. False, with the reason in `error`, when
// something cannot be read, or is neither directory, regular file nor link to a regular file.
[[nodiscard]] bool ScanTree(const std::string& directory, std::vector<SourceFile>* files,
                            std::string* error);

#endif
