#include "lib/server_name.h"

#include <algorithm>

std::string LocalPath(const std::string& name) {
    const size_t slash = name.find('/');
    return slash == std::string::npos ? name : name.substr(slash + 1);
}

bool IsPathInside(const std::string& path) {
    if (path.starts_with('/') || path.size() > kMaxNameLength) return false;
    for (size_t begin = 0; begin <= path.size();) {
        const size_t end = std::min(path.find('/', begin), path.size());
        if (path.compare(begin, end - begin, "..") == 0) return false;
        begin = end + 1;
    }
    return true;
}

bool IsSafeServerName(const std::string& name) {
    const std::string path = LocalPath(name);
    return !path.empty() && path != kStartNotes && IsPathInside(name) && IsPathInside(path);
}
