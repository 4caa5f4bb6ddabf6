#include "lib/file_helpers.h"

#include <sys/stat.h>

#include <algorithm>

#include "lib/checksum.h"
#include "lib/stream.h"

namespace {

constexpr size_t kFilePiece = 4096;
constexpr size_t kRangePiece = 1024;
constexpr int64_t kSmallestReported = 500000;

// Keeps a real checksum apart from kNoChecksum.
uint32_t RealChecksum(uint32_t value) {
    return value == kNoChecksum ? kNoChecksum - 1 : value;
}

}  // namespace

int64_t FileSize(const std::string& path) {
    const Stream file = OpenForReading(path);
    return file ? StreamSize(file.get()) : -1;
}

uint32_t FileChecksum(const std::string& path, ProgressIndicator* progress) {
    Stream file = OpenForReading(path);
    if (!file) return kNoChecksum;
    const int64_t size = StreamSize(file.get());
    const bool report = progress != nullptr && size >= kSmallestReported;

    uint32_t value = kFileChecksumStart;
    uint8_t piece[kFilePiece];
    int64_t done = 0;
    for (;;) {
        const size_t got = fread(piece, 1, sizeof piece, file.get());
        if (got == 0) break;
        value = Checksum(piece, static_cast<uint32_t>(got), value);
        if (got < sizeof piece) break;
        done += static_cast<int64_t>(got);
        if (report) progress->SetProgress(static_cast<int32_t>(done), static_cast<int32_t>(size));
    }
    file.reset();
    if (report) progress->SetProgress(static_cast<int32_t>(size), static_cast<int32_t>(size));
    return RealChecksum(value);
}

uint32_t FileRangeChecksum(const std::string& path, int64_t offset, int64_t length) {
    const Stream file = OpenForReading(path);
    if (!file) return kNoChecksum;
    fseeko(file.get(), offset, SEEK_SET);

    uint32_t value = kRangeChecksumStart;
    uint8_t piece[kRangePiece];
    while (length > 0) {
        const auto wanted = static_cast<size_t>(std::min<int64_t>(length, sizeof piece));
        const size_t got = fread(piece, 1, wanted, file.get());
        if (got == 0) break;
        value = Checksum(piece, static_cast<uint32_t>(got), value);
        if (got < wanted) break;
        length -= static_cast<int64_t>(got);
    }
    return RealChecksum(value);
}

uint32_t FileTailChecksum(const std::string& path, int64_t size) {
    const int64_t start = std::max<int64_t>(size - kTailSize, 0);
    return FileRangeChecksum(path, start, size - start);
}

void MakePath(const std::string& path) {
    for (size_t slash = path.find('/'); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        mkdir(path.substr(0, slash).c_str(), 0777);
    }
}
