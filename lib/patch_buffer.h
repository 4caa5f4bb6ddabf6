// The interpreter of patches.
#ifndef HALCYRIX_LIB_PATCH_BUFFER_H
#define HALCYRIX_LIB_PATCH_BUFFER_H

#include <cstdint>
#include <string>

#include "lib/patch_reader.h"
#include "lib/spanbuf/span_buffer.h"
#include "lib/stream.h"

// The result of running a patch against a file: spans of the two files, which the buffer owns and
// keeps open. The result must be written out while the buffer lives.
class PatchBuffer : public SpanBuffer {
public:
    // Runs the patch against the target and leaves the new contents in the spans. No byte of either
    // file is copied. Call once on a new buffer.
    //
    // False when a file cannot be opened, and when the patch has an unknown command, ends within
    // one, reaches outside its sources, or exceeds the limits of lib/patch_format.h. An unknown
    // command and a missing last end-of-pass are told on standard output.
    [[nodiscard]] bool Load(const std::string& patch_path, const std::string& target_path);

private:
    // Appends a stretch of `source` to `output`; false when it is out of bounds.
    bool AppendStretch(SpanBuffer* output, const SpanBuffer& source, uint64_t offset,
                       uint64_t length);

    Stream targetFile;
    Stream patchFile;
    uint64_t m_extraSpans = 0;  // that commands have placed beyond one each
};

#endif
