// Lists the maker's files.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

// A file under the directory, symbolic links followed.
struct SourceFile {
    std::string path;  // relative to the directory
    struct stat status;
    bool leadsOut;  // a link to a file that is not below the directory
};

// Whether both are of the same file, and it did not change in between.
bool IsSameFile(const struct stat& before, const struct stat& after);
bool IsSameTree(const std::vector<SourceFile>& before, const std::vector<SourceFile>& after);

// Lists the files below a directory, sorted by path. Puts a line in `problems` for whatever cannot
// be read, or is neither a directory, a regular file nor a link to a regular file.
std::vector<SourceFile> ScanTree(const std::string& directory, std::vector<std::string>* problems);
