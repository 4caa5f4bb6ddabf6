// Copies of files in the store.
#ifndef HALCYRIX_STORE_FILE_COPY_H
#define HALCYRIX_STORE_FILE_COPY_H

#include <string>

// Whether both can be read and hold the same bytes.
bool HaveSameContents(const std::string& one, const std::string& other);

// Makes `to`, which must not exist, a copy of `from` that shares its blocks where the file system
// can do that.
[[nodiscard]] bool CopyFile(const std::string& from, const std::string& to, std::string* error);

// Makes `to` another name of `from`, or a copy where that cannot be.
[[nodiscard]] bool LinkOrCopyFile(const std::string& from, const std::string& to,
                                  std::string* error);

#endif
