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
    bool leadsOut;  // it is a link to a file that is not below the directory
};

// Whether the two readings are of one file that nobody has touched in between.
bool IsSameFile(const struct stat& before, const struct stat& after);
bool IsSameTree(const std::vector<SourceFile>& before, const std::vector<SourceFile>& after);

// Lists the files below a directory, sorted by path. What cannot be read, or is neither directory,
// regular file nor link to a regular file, is told in `problems`, a line each.
std::vector<SourceFile> ScanTree(const std::string& directory, std::vector<std::string>* problems);

#endif
