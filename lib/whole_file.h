// Small text files of the store, read and written in one piece.
#ifndef HALCYRIX_LIB_WHOLE_FILE_H
#define HALCYRIX_LIB_WHOLE_FILE_H

#include <string>

// "path: what went wrong", from errno.
std::string SystemError(const std::string& path);

[[nodiscard]] bool ReadWholeFile(const std::string& path, std::string* text, std::string* error);

// Creates or truncates the file.
[[nodiscard]] bool WriteWholeFile(const std::string& path, const std::string& text,
                                  std::string* error);

#endif
