#include "tests/support/sample_store.h"

#include <sys/stat.h>

#include <random>

#include "lib/file_helpers.h"
#include "tests/support/scratch_dir.h"

namespace fs = std::filesystem;

std::string PublishSample(const std::string& version,
                          const std::vector<ComponentSource>& components, size_t patches_from,
                          RecordingObserver* observer) {
    RecordingObserver unheard;
    std::string error;
    Publisher publisher({"store", version, components, patches_from},
                        observer != nullptr ? observer : &unheard);
    if (publisher.Publish(&error)) return {};
    return error.empty() ? "(no reason)" : error;
}

std::unique_ptr<Store> OpenSample() {
    std::string error;
    return Store::Open("store", &error);
}

std::string Noise(size_t size, uint32_t seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

std::map<std::string, std::string> Snapshot(const fs::path& directory) {
    std::map<std::string, std::string> found;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory)) {
        const std::string path = entry.path().string();
        struct stat status;
        if (entry.is_directory() || stat(path.c_str(), &status) != 0) {
            found[path] = "(folder)";
        } else {
            found[path] = std::to_string(status.st_size) + " bytes, inode " +
                          std::to_string(status.st_ino) + ", checksum " +
                          std::to_string(FileChecksum(path, nullptr));
        }
    }
    return found;
}
