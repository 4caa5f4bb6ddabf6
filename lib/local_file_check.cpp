#include "lib/local_file_check.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "lib/file_helpers.h"
#include "lib/stream.h"

namespace {

// Enough for eight of the largest files.
constexpr size_t kRoom = size_t{4} << 20;

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

size_t CheckTogether(std::span<ExpectedFile> files, std::chrono::steady_clock::time_point until) {
    const auto timeIsUp = [&] { return std::chrono::steady_clock::now() >= until; };

    // The disk is asked for all of them before the first one is needed.
    std::vector<Stream> streams;
    size_t total = 0;
    for (const ExpectedFile& file : files) {
        Stream stream = OpenForReading(file.path);
        if (stream) ReadAhead(stream.get());
        if (file.length >= kSmallestReported || file.length > kRoom - total) break;
        total += file.length;
        streams.push_back(std::move(stream));
        if (timeIsUp()) break;
    }

    const std::unique_ptr<uint8_t[]> room(new uint8_t[total]);
    uint8_t* data = room.get();
    std::vector<FileContents> contents;
    for (const Stream& stream : streams) {
        ExpectedFile& file = files[contents.size()];
        file.good = stream && static_cast<uint64_t>(StreamSize(stream.get())) == file.length &&
                    ReadAt(stream.get(), 0, data, file.length) == file.length;
        contents.push_back({data, file.good ? static_cast<uint32_t>(file.length) : 0});
        data += file.length;
        if (timeIsUp()) break;
    }
    ChecksumFiles(contents);
    for (size_t i = 0; i < contents.size(); ++i) {
        if (contents[i].checksum != files[i].checksum) files[i].good = false;
    }
    return std::max<size_t>(contents.size(), 1);
}
