// Standard I/O streams with an owner. All are opened close-on-exec.
#ifndef HALCYRIX_LIB_STREAM_H
#define HALCYRIX_LIB_STREAM_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

struct StreamCloser {
    void operator()(FILE* stream) const { fclose(stream); }
    std::unique_ptr<char[]> buffer;  // null for the system's own
};
using Stream = std::unique_ptr<FILE, StreamCloser>;

// Opens a regular file for binary reading. Null with errno set when it cannot be opened or is
// anything else: a directory opens but does not read, and a FIFO would block.
Stream OpenForReading(const std::string& path);

// Creates or truncates the file for binary writing. Null with errno set on failure. Neither this
// nor OpenForAppending(), which creates the file too, waits at a FIFO.
Stream OpenForWriting(const std::string& path);
Stream OpenForAppending(const std::string& path);

// Gives the stream a buffer of `size` bytes, larger than the system's own: that saves calls. Only
// before anything else is done with it.
void SetBuffer(Stream* stream, size_t size);

// Goes to an offset from the start of a file that is open for reading.
void MoveTo(FILE* stream, uint64_t offset);

// Closes the stream; false when anything written to it, now or before, did not reach the system.
[[nodiscard]] bool CloseWritten(Stream stream);

// The size of the stream's file, without what the stream has yet to write.
int64_t StreamSize(FILE* stream);

#endif
