#include "store/folder.h"

#include <algorithm>

#include "lib/failure.h"

namespace fs = std::filesystem;

bool ListFolder(const std::string& folder, std::vector<fs::path>* paths, std::string* error) {
    std::error_code fault;
    for (fs::directory_iterator entry(folder, fault), end; !fault && entry != end;
         entry.increment(fault)) {
        paths->push_back(entry->path());
    }
    std::ranges::sort(*paths);
    return !fault || Fail(error, folder + ": " + fault.message());
}

bool IsBelow(const fs::path& path, const fs::path& folder) {
    return std::ranges::mismatch(folder, path).in1 == folder.end();
}
