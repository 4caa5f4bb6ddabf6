// A server's names of files: a component, a slash and the path below the home directory.
#pragma once

#include <cstddef>
#include <string>

// The longest path that the system accepts.
constexpr size_t kMaxNameLength = 4095;

// The updater's own file in the home directory: its notes of starts. No server may name a file so.
constexpr char kStartNotes[] = "update.starts";

// The part of a server's name behind its first slash; all of it without a slash.
std::string LocalPath(const std::string& name);

// Whether a path is relative, no longer than kMaxNameLength and without a ".." component.
bool IsPathInside(const std::string& path);

// Whether a server's name and its local path are both inside and not empty, and the local path is
// not kStartNotes.
bool IsSafeServerName(const std::string& name);
