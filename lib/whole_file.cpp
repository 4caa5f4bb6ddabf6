#include "lib/whole_file.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "lib/stream.h"

namespace {

constexpr size_t kPiece = size_t{128} * 1024;

}  // namespace

std::string SystemError(const std::string& path) { return path + ": " + strerror(errno); }

bool ReadWholeFile(const std::string& path, std::string* text, std::string* error) {
    const Stream file = OpenForReading(path);
    text->clear();
    if (file) {
        std::vector<char> piece(kPiece);
        while (const size_t got = fread(piece.data(), 1, kPiece, file.get())) {
            text->append(piece.data(), got);
        }
    }
    const bool read = file && !ferror(file.get());
    return read || Fail(error, SystemError(path));
}

bool WriteWholeFile(const std::string& path, const std::string& text, std::string* error) {
    Stream file = OpenForWriting(path);
    const bool written = file && fwrite(text.data(), 1, text.size(), file.get()) == text.size() &&
                         CloseWritten(std::move(file));
    return written || Fail(error, SystemError(path));
}

bool HaveSameContents(const std::string& one, const std::string& other) {
    const Stream a = OpenForReading(one);
    const Stream b = OpenForReading(other);
    if (!a || !b) return false;
    struct stat ofA, ofB;
    if (fstat(fileno(a.get()), &ofA) != 0 || fstat(fileno(b.get()), &ofB) != 0) return false;
    if (ofA.st_dev == ofB.st_dev && ofA.st_ino == ofB.st_ino) return true;
    std::vector<char> pieceOfA(kPiece);
    std::vector<char> pieceOfB(kPiece);
    for (;;) {
        const size_t got = fread(pieceOfA.data(), 1, kPiece, a.get());
        if (fread(pieceOfB.data(), 1, kPiece, b.get()) != got) return false;
        if (memcmp(pieceOfA.data(), pieceOfB.data(), got) != 0) return false;
        if (got < kPiece) return !ferror(a.get()) && !ferror(b.get());
    }
}

bool CopyFile(const std::string& from, const std::string& to, WorkObserver* observer,
              std::string* error) {
    const Stream source = OpenForReading(from);
    if (!source) return Fail(error, SystemError(from));
    Stream target = OpenForWriting(to);
    if (!target) return Fail(error, SystemError(to));
    if (ioctl(fileno(target.get()), FICLONE, fileno(source.get())) == 0) {
        observer->Done(static_cast<uint64_t>(StreamSize(source.get())));
        return true;
    }

    std::vector<char> piece(kPiece);
    while (const size_t got = fread(piece.data(), 1, kPiece, source.get())) {
        if (fwrite(piece.data(), 1, got, target.get()) != got) break;
        observer->Done(got);
    }
    if (ferror(source.get())) return Fail(error, SystemError(from));
    const bool written = CloseWritten(std::move(target));
    return written || Fail(error, SystemError(to));
}

MappedFile::~MappedFile() {
    if (m_data != nullptr) munmap(const_cast<uint8_t*>(m_data), m_size);
}

bool MappedFile::Open(const std::string& path, std::string* error) {
    const Stream file = OpenForReading(path);
    if (!file) return Fail(error, SystemError(path));
    const auto size = static_cast<size_t>(StreamSize(file.get()));
    if (size == 0) return true;
    void* data = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fileno(file.get()), 0);
    if (data == MAP_FAILED) return Fail(error, SystemError(path));
    m_data = static_cast<const uint8_t*>(data);
    m_size = size;
    return true;
}

void MappedFile::Release(size_t begin, size_t end) {
    if (begin < end) madvise(const_cast<uint8_t*>(m_data) + begin, end - begin, MADV_DONTNEED);
}
