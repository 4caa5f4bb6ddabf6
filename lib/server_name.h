// Names that a server gives to files: a component, a slash, and the path below the home directory.
#ifndef HALCYRIX_LIB_SERVER_NAME_H
#define HALCYRIX_LIB_SERVER_NAME_H

#include <cstddef>
#include <string>

// What the system takes as a path.
constexpr size_t kMaxNameLength = 4095;

// The local path of a server's name: what follows its first slash, or all of it without one.
std::string LocalPath(const std::string& name);

// Whether a path stays below the directory that it is relative to: neither absolute nor longer than
// kMaxNameLength, and without a ".." component.
bool IsPathInside(const std::string& path);

// Whether a server's name may be used: neither the name nor its local path is empty, and both stay
// inside.
bool IsSafeServerName(const std::string& name);

#endif
