// The contents of a new file, as stretches of open files.
#pragma once

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
// Copies share the streams, which must outlive them. Writing moves the streams' positions. The cost
// of building depends on the number of spans, not of bytes.
class SpanBuffer {
public:
    uint64_t Size() const;

    // Appends the other buffer's spans; returns the new size.
    uint64_t Append(const SpanBuffer& other);

    // Whether the range lies inside the buffer.
    bool Contains(uint64_t offset, uint64_t length) const;

    // The `length` bytes from `offset`, as spans of the same streams. Empty when the buffer does
    // not contain the range. The buffer must have a span.
    SpanBuffer SubSpan(uint64_t offset, uint64_t length) const;
    // Appends these spans to another buffer. Returns their number.
    size_t AppendTo(SpanBuffer* target, uint64_t offset, uint64_t length) const;

    // Writes all bytes to `out` in pieces of at most 4096 and flushes it. Reports each piece to
    // `progress` (may be null). False at the first span that fails; an empty span fails.
    [[nodiscard]] bool Write(FILE* out, ProgressIndicator* progress) const;

    // Writes one span, after `done` of `total` bytes. Returns the number of bytes written, 0 for
    // failure.
    static uint64_t WriteSpan(const Span& span, FILE* out, ProgressIndicator* progress,
                              uint64_t done, uint64_t total);

    // Writes the buffer into a new or truncated file. After a failure the file has a part of it.
    [[nodiscard]] bool WriteFile(const std::string& path, ProgressIndicator* progress) const;

    // Lists the spans on standard output.
    void Dump() const;

    std::map<uint64_t, Span> spans;  // by their start in the buffer
};
