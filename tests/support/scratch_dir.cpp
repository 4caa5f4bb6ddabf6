#include "tests/support/scratch_dir.h"

#include <sys/resource.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>

namespace fs = std::filesystem;

ScratchDir::ScratchDir() : m_before(fs::current_path()) {
    std::string name = (fs::temp_directory_path() / "halcyrix-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) abort();
    m_path = name;
    fs::current_path(m_path);
}

ScratchDir::~ScratchDir() {
    fs::current_path(m_before);
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return "(missing)";
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const fs::path& path, const std::string& contents) {
    if (path.has_parent_path()) fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
}

namespace {

void LimitFileSize(rlim_t bytes) {
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = std::min(bytes, limit.rlim_max);
    setrlimit(RLIMIT_FSIZE, &limit);
}

}  // namespace

FileSizeLimit::FileSizeLimit(size_t bytes) {
    LimitFileSize(bytes);
}

FileSizeLimit::~FileSizeLimit() {
    LimitFileSize(RLIM_INFINITY);
}

std::string SeededBytes(size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}
