#include "lib/local_file_check.h"

#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "lib/file_helpers.h"
#include "lib/stream.h"

namespace {

// Room for eight of the largest files.
constexpr size_t kRoom = size_t{4} << 20;

FileStamp StampOf(const struct stat& status) {
    const timespec& contents = status.st_mtim;
    const timespec& any = status.st_ctim;
    return {static_cast<int64_t>(status.st_ino),
            status.st_size,
            contents.tv_sec,
            contents.tv_nsec,
            any.tv_sec,
            any.tv_nsec};
}

}  // namespace

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

FileStamp StampOf(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? StampOf(status) : FileStamp{};
}

size_t CheckTogether(std::span<ExpectedFile> files, std::chrono::steady_clock::time_point until) {
    using Clock = std::chrono::steady_clock;
    const auto began = Clock::now();
    const auto openUntil = began + (until - began) / 2;

    // The disk gets all requests before the first result is needed.
    std::vector<Stream> streams;
    size_t total = 0;
    for (const ExpectedFile& file : files) {
        if (file.length >= kSmallestReported || file.length > kRoom - total) break;
        Stream stream = OpenForReading(file.path);
        if (!stream) break;
        ReadAhead(stream.get());
        total += file.length;
        streams.push_back(std::move(stream));
        if (Clock::now() >= openUntil) break;
    }

    const std::unique_ptr<uint8_t[]> room(new uint8_t[total]);
    uint8_t* data = room.get();
    std::vector<FileContents> contents;
    for (const Stream& stream : streams) {
        ExpectedFile& file = files[contents.size()];
        struct stat status = {};
        fstat(fileno(stream.get()), &status);
        file.stamp = StampOf(status);
        file.good = static_cast<uint64_t>(status.st_size) == file.length &&
                    ReadAt(stream.get(), 0, data, file.length) == file.length;
        contents.push_back({data, file.good ? static_cast<uint32_t>(file.length) : 0});
        data += file.length;
        if (Clock::now() >= until) break;
    }
    ChecksumFiles(contents);
    for (size_t i = 0; i < contents.size(); ++i) {
        if (contents[i].checksum != files[i].checksum) files[i].good = false;
    }
    return std::max<size_t>(contents.size(), 1);
}
