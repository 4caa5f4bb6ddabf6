#include "lib/local_file_check.h"

#include "lib/file_helpers.h"
#include "lib/stream.h"

LocalFileCheck CheckLocalFile(const std::string& path, uint64_t length, uint32_t checksum,
                              ProgressIndicator* progress) {
    LocalFileCheck found;
    const Stream file = OpenForReading(path);
    if (!file) return found;
    const int64_t size = StreamSize(file.get());
    found.opened = true;
    found.length = static_cast<uint32_t>(size);
    if (found.length != length) {
        found.result = CHECK_DIFFERS;
        found.tailChecksum = FileTailChecksum(file.get(), size);
    } else if (FileChecksum(file.get(), progress) == checksum) {
        found.result = CHECK_GOOD;
    }
    return found;
}
