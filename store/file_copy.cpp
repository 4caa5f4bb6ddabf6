#include "store/file_copy.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "lib/stream.h"
#include "lib/whole_file.h"

namespace {
constexpr size_t kPiece = size_t{128} * 1024;
}

bool HaveSameContents(const std::string& one, const std::string& other) {
    const Stream a = OpenForReading(one);
    const Stream b = OpenForReading(other);
    if (!a || !b) return false;
    std::vector<char> pieceOfA(kPiece);
    std::vector<char> pieceOfB(kPiece);
    for (;;) {
        const size_t got = fread(pieceOfA.data(), 1, kPiece, a.get());
        if (fread(pieceOfB.data(), 1, kPiece, b.get()) != got) return false;
        if (memcmp(pieceOfA.data(), pieceOfB.data(), got) != 0) return false;
        if (got < kPiece) return !ferror(a.get()) && !ferror(b.get());
    }
}

bool CopyFile(const std::string& from, const std::string& to, std::string* error) {
    const Stream source = OpenForReading(from);
    if (!source) {
        *error = SystemError(from);
        return false;
    }
    Stream target = OpenForWriting(to);
    if (!target) {
        *error = SystemError(to);
        return false;
    }
    if (ioctl(fileno(target.get()), FICLONE, fileno(source.get())) == 0) return true;

    std::vector<char> piece(kPiece);
    while (const size_t got = fread(piece.data(), 1, kPiece, source.get())) {
        if (fwrite(piece.data(), 1, got, target.get()) != got) break;
    }
    if (ferror(source.get())) {
        *error = SystemError(from);
        return false;
    }
    const bool written = CloseWritten(std::move(target));
    if (!written) *error = SystemError(to);
    return written;
}

bool LinkOrCopyFile(const std::string& from, const std::string& to, std::string* error) {
    return link(from.c_str(), to.c_str()) == 0 || CopyFile(from, to, error);
}
