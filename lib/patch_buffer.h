// The interpreter of patches.
#pragma once

#include <cstdint>
#include <string>

#include "lib/patch_reader.h"
#include "lib/spanbuf/span_buffer.h"
#include "lib/stream.h"

// The result of a patch: spans of the patch and the target, which the buffer keeps open. Write it
// out while the buffer lives.
class PatchBuffer : public SpanBuffer {
public:
    // Runs the patch and leaves the new contents in the spans. Copies no bytes. Call once.
    //
    // False when a file cannot be opened, or when the patch has an unknown command, ends within a
    // command, reads outside its sources or exceeds a limit of lib/patch_format.h. Reports an
    // unknown command and a missing end-of-pass on standard output.
    [[nodiscard]] bool Load(const std::string& patch_path, const std::string& target_path);

private:
    // Appends a stretch of `source` to `output`; false when it is out of bounds.
    bool AppendStretch(SpanBuffer* output, const SpanBuffer& source, uint64_t offset,
                       uint64_t length);

    Stream targetFile;
    Stream patchFile;
    uint64_t m_extraSpans = 0;  // beyond one per command
};
