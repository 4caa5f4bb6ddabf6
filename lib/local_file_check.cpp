#include "lib/local_file_check.h"

#include "lib/file_helpers.h"

LocalFileCheck CheckLocalFile(const std::string& path, uint64_t length, uint32_t checksum,
                              ProgressIndicator* progress) {
    LocalFileCheck found;
    const int64_t size = FileSize(path);
    if (size == -1) return found;
    found.opened = true;
    found.length = static_cast<uint32_t>(size);
    if (found.length != length) {
        found.result = CHECK_DIFFERS;
        found.tailChecksum = FileTailChecksum(path, size);
    } else if (FileChecksum(path, progress) == checksum) {
        found.result = CHECK_GOOD;
    }
    return found;
}
