// The writing of spans to a file.
#ifndef HALCYRIX_LIB_SPANBUF_SPAN_WRITER_H
#define HALCYRIX_LIB_SPANBUF_SPAN_WRITER_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "lib/progress_indicator.h"
#include "lib/spanbuf/span_buffer.h"

// Writes to the descriptor of an open stream, which it does not own and which nobody may use
// between the first Write() and Finish(). Spans are read from the descriptors of theirs, past the
// streams' buffers and positions.
//
// A long span is left to the kernel to copy. The bytes of short ones are collected and written
// together, and read ahead as long as they stand close to one another in their file.
class SpanWriter {
public:
    explicit SpanWriter(FILE* out);

    // Tells `progress` (may be null) of each piece of at most 4096 bytes; `done` bytes of `total`
    // have been written before the span. Returns the number of bytes written or collected, 0 for
    // failure and for an empty span.
    uint64_t Write(const Span& span, ProgressIndicator* progress, uint64_t done, uint64_t total);

    // Writes what was collected. False when that fails, now or before.
    [[nodiscard]] bool Finish();

private:
    // The latest bytes read from a file.
    struct Window {
        FILE* file;
        uint64_t begin = 0;
        size_t size = 0;
        size_t ahead = 0;  // how much was asked for
        std::vector<uint8_t> bytes;
    };

    Window& WindowOf(FILE* file);
    // The bytes of the file from `offset`, `*length` at most, which is set to what there is.
    const uint8_t* Read(FILE* file, uint64_t offset, size_t* length);
    bool Collect(const uint8_t* bytes, size_t length);
    bool WriteCollected();
    uint64_t CopyInKernel(const Span& span, uint64_t from, uint64_t length);

    FILE* m_out;
    bool m_good;
    std::vector<Window> m_windows;
    std::vector<uint8_t> m_collected;
};

#endif
