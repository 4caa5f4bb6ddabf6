// The contents of a file that does not exist yet, as stretches of open files.
#ifndef HALCYRIX_LIB_SPANBUF_SPAN_BUFFER_H
#define HALCYRIX_LIB_SPANBUF_SPAN_BUFFER_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

#include "lib/progress_indicator.h"

// A stretch of bytes in an open stream, which it does not own.
struct Span {
    FILE* file;
    uint64_t offset;
    uint64_t length;
};

// An ordered list of spans that tile the buffer from 0 without gap or overlap. Every span has a
// positive length, except the single span of an empty file.
//
// A value: copies share the streams, never bytes. The streams must stay open for as long as a
// buffer over them is used; writing a buffer moves their positions. Building costs by the number of
// spans, not of bytes.
class SpanBuffer {
public:
    uint64_t Size() const;

    // Appends the other buffer's spans; returns the new size.
    uint64_t Append(const SpanBuffer& other);

    // Whether the range lies inside the buffer.
    bool Contains(uint64_t offset, uint64_t length) const;

    // The `length` bytes from `offset` as spans into the same streams. A range that the buffer does
    // not contain gives an empty buffer. The buffer must have a span.
    SpanBuffer SubSpan(uint64_t offset, uint64_t length) const;
    // Appends the same to another buffer; returns the number of spans placed.
    size_t AppendTo(SpanBuffer* target, uint64_t offset, uint64_t length) const;

    // Writes all bytes to `out`, in pieces of at most 4096, telling `progress` (may be null) of
    // each, and flushes it. False at the first span that fails, an empty one included.
    [[nodiscard]] bool Write(FILE* out, ProgressIndicator* progress) const;

    // Writes one span; `done` bytes of `total` have been written before it. Returns the number of
    // bytes written, 0 for failure.
    static uint64_t WriteSpan(const Span& span, FILE* out, ProgressIndicator* progress,
                              uint64_t done, uint64_t total);

    // Writes the buffer into a new or truncated file. What was written before a failure stays in
    // the file.
    [[nodiscard]] bool WriteFile(const std::string& path, ProgressIndicator* progress) const;

    // Lists the spans on standard output.
    void Dump() const;

    std::map<uint64_t, Span> spans;  // by their start in the buffer
};

#endif
