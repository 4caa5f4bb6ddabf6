#include "lib/whole_file.h"

#include <cerrno>
#include <cstring>

#include "lib/stream.h"

std::string SystemError(const std::string& path) {
    return path + ": " + strerror(errno);
}

bool ReadWholeFile(const std::string& path, std::string* text, std::string* error) {
    const Stream file = OpenForReading(path);
    text->clear();
    if (file) {
        char piece[65536];
        while (const size_t got = fread(piece, 1, sizeof piece, file.get())) {
            text->append(piece, got);
        }
    }
    const bool read = file && !ferror(file.get());
    if (!read) *error = SystemError(path);
    return read;
}

bool WriteWholeFile(const std::string& path, const std::string& text, std::string* error) {
    Stream file = OpenForWriting(path);
    const bool written = file && fwrite(text.data(), 1, text.size(), file.get()) == text.size() &&
                         CloseWritten(std::move(file));
    if (!written) *error = SystemError(path);
    return written;
}
