// Folders on the disk.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

// Lists what is in a folder, sorted. When an error ends that early, gives what was found so far,
// and the reason in `error`.
[[nodiscard]] bool ListFolder(const std::string& folder, std::vector<std::filesystem::path>* paths,
                              std::string* error);

// Whether the path is that of the folder or of something below it. Both must be canonical.
bool IsBelow(const std::filesystem::path& path, const std::filesystem::path& folder);
