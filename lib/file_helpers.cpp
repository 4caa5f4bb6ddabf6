#include "lib/file_helpers.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "lib/checksum.h"
#include "lib/stream.h"

namespace {

constexpr size_t kRangePiece = 1024;

// Several pieces per read: a system call takes a quarter of the time of a piece's checksum.
constexpr size_t kPiecesPerRead = 16;

constexpr off_t kReadAhead = 1 << 20;

uint32_t RangeChecksum(FILE* file, int64_t offset, int64_t length) {
    uint32_t value = kRangeChecksumStart;
    uint8_t piece[kRangePiece];
    while (length > 0) {
        const auto wanted = static_cast<size_t>(std::min<int64_t>(length, sizeof piece));
        const size_t got = ReadAt(file, offset, piece, wanted);
        if (got == 0) break;
        value = Checksum(piece, static_cast<uint32_t>(got), value);
        if (got < wanted) break;
        offset += static_cast<int64_t>(got);
        length -= static_cast<int64_t>(got);
    }
    return RealChecksum(value);
}

}  // namespace

size_t ReadAt(FILE* file, int64_t offset, uint8_t* bytes, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t got =
            pread(fileno(file), bytes + done, size - done, offset + static_cast<int64_t>(done));
        if (got <= 0) break;
        done += static_cast<size_t>(got);
    }
    return done;
}

int64_t FileSize(const std::string& path) {
    const Stream file = OpenForReading(path);
    return file ? StreamSize(file.get()) : -1;
}

uint32_t FileChecksum(const std::string& path, ProgressIndicator* progress) {
    const Stream file = OpenForReading(path);
    return file ? FileChecksum(file.get(), progress) : kNoChecksum;
}

uint32_t FileChecksum(FILE* file, ProgressIndicator* progress) {
    const int64_t size = StreamSize(file);
    const bool report = progress != nullptr && size >= kSmallestReported;

    uint32_t value = kFileChecksumStart;
    uint8_t pieces[kPiecesPerRead * kFilePiece];
    int64_t done = 0;
    for (size_t got = sizeof pieces; got == sizeof pieces;) {
        got = ReadAt(file, done, pieces, sizeof pieces);
        for (size_t at = 0; at < got; at += kFilePiece) {
            const size_t piece = std::min<size_t>(got - at, kFilePiece);
            value = Checksum(pieces + at, static_cast<uint32_t>(piece), value);
            if (piece < kFilePiece) break;
            done += static_cast<int64_t>(piece);
            if (report) progress->ShowProgress(done, size);
        }
    }
    if (report) progress->ShowProgress(size, size);
    return RealChecksum(value);
}

uint32_t FileRangeChecksum(const std::string& path, int64_t offset, int64_t length) {
    const Stream file = OpenForReading(path);
    return file ? RangeChecksum(file.get(), offset, length) : kNoChecksum;
}

uint32_t FileTailChecksum(const std::string& path, int64_t size) {
    const Stream file = OpenForReading(path);
    return file ? FileTailChecksum(file.get(), size) : kNoChecksum;
}

uint32_t FileTailChecksum(FILE* file, int64_t size) {
    const int64_t start = std::max<int64_t>(size - kTailSize, 0);
    return RangeChecksum(file, start, size - start);
}

void ReadAhead(FILE* file) { posix_fadvise(fileno(file), 0, kReadAhead, POSIX_FADV_WILLNEED); }

void MakePath(const std::string& path) {
    for (size_t slash = path.find('/'); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        mkdir(path.substr(0, slash).c_str(), 0777);
    }
}
