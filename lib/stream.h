// Standard I/O streams with an owner, opened close-on-exec.
#pragma once

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

// Opens a regular file for binary reading. Null with errno set when that fails or the file is not
// regular: a directory cannot be read, and a FIFO would block.
Stream OpenForReading(const std::string& path);

// Create or open the file for binary writing; null with errno set on failure. OpenForWriting()
// truncates it. Neither blocks at a FIFO.
Stream OpenForWriting(const std::string& path);
Stream OpenForAppending(const std::string& path);

// Gives the stream a buffer of `size` bytes, which saves system calls. Call before anything else.
void SetBuffer(Stream* stream, size_t size);

// Seeks in a file that is open for reading.
void MoveTo(FILE* stream, uint64_t offset);

// Closes the stream. False when anything written to it did not reach the system.
[[nodiscard]] bool CloseWritten(Stream stream);

// The size of the stream's file, without unwritten buffers.
int64_t StreamSize(FILE* stream);
