#include "lib/stream.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr mode_t kNewFileMode = 0666;  // before the umask

// glibc's fseeko() always makes a system call; reading over a short gap is cheaper.
constexpr off_t kReadOver = 1024;

Stream OpenStream(const std::string& path, int flags, const char* mode) {
    int fd = open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, kNewFileMode);
    struct stat status;
    // Another program holds a lease on the file. A waiting open() gets it back.
    if (fd == -1 && errno == EWOULDBLOCK && stat(path.c_str(), &status) == 0 &&
        S_ISREG(status.st_mode)) {
        fd = open(path.c_str(), flags | O_CLOEXEC, kNewFileMode);
    }
    if (fd == -1) return nullptr;
    Stream stream(fdopen(fd, mode));
    if (!stream) close(fd);
    return stream;
}

}  // namespace

Stream OpenForReading(const std::string& path) {
    Stream stream = OpenStream(path, O_RDONLY, "rb");
    struct stat status;
    if (!stream || fstat(fileno(stream.get()), &status) == -1) return nullptr;
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return nullptr;
    }
    return stream;
}

Stream OpenForWriting(const std::string& path) {
    return OpenStream(path, O_WRONLY | O_CREAT | O_TRUNC, "wb");
}

Stream OpenForAppending(const std::string& path) {
    return OpenStream(path, O_WRONLY | O_CREAT | O_APPEND, "ab");
}

void SetBuffer(Stream* stream, size_t size) {
    auto& buffer = stream->get_deleter().buffer;
    buffer = std::unique_ptr<char[]>(new char[size]);
    setvbuf(stream->get(), buffer.get(), _IOFBF, size);
    // One thread uses the stream; locking each call is slow.
    __fsetlocking(stream->get(), FSETLOCKING_BYCALLER);
    // Until the first seek, ftello() makes a system call too.
    fseeko(stream->get(), 0, SEEK_SET);
}

void MoveTo(FILE* stream, uint64_t offset) {
    const auto target = static_cast<off_t>(offset);
    // A stream at its end must seek before it can read more.
    const off_t here = feof(stream) ? -1 : ftello(stream);
    if (here != -1 && here <= target && target - here <= kReadOver) {
        char passed[kReadOver];
        const auto length = static_cast<size_t>(target - here);
        if (fread(passed, 1, length, stream) == length) return;
    }
    fseeko(stream, target, SEEK_SET);
}

bool CloseWritten(Stream stream) {
    const bool written = fflush(stream.get()) == 0 && !ferror(stream.get());
    return (fclose(stream.release()) == 0) && written;
}

int64_t StreamSize(FILE* stream) {
    struct stat status;
    return fstat(fileno(stream), &status) == 0 ? status.st_size : 0;
}
