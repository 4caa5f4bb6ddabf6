#include "lib/patch_buffer.h"

#include <cstdio>

#include "lib/patch_format.h"
#include "log/gamelog.h"

namespace {

// Small, because every jump to another stretch reads the whole buffer again.
constexpr size_t kReadBuffer = 16 * 1024;

// The whole of a stream, as one span.
SpanBuffer WholeStream(FILE* file, uint64_t size) {
    SpanBuffer buffer;
    buffer.spans.emplace(0, Span{file, 0, size});
    return buffer;
}

}  // namespace

bool PatchBuffer::AppendStretch(SpanBuffer* output, const SpanBuffer& source, uint64_t offset,
                                uint64_t length) {
    if (!source.Contains(offset, length)) return false;
    if (output->Size() + length > kMaxPatchedSize) return false;
    const size_t placed = source.AppendTo(output, offset, length);
    if (placed > 1) m_extraSpans += placed - 1;
    return m_extraSpans <= kMaxPatchSpans;
}

bool PatchBuffer::Load(const std::string& patch_path, const std::string& target_path) {
    patchFile = OpenForReading(patch_path);
    if (!patchFile) return false;
    targetFile = OpenForReading(target_path);
    if (!targetFile) {
        patchFile.reset();
        return false;
    }

    SetBuffer(&patchFile, kReadBuffer);
    SetBuffer(&targetFile, kReadBuffer);
    PatchReader reader(patchFile.get());
    const SpanBuffer patchImage = WholeStream(patchFile.get(), reader.Size());
    const auto targetSize = static_cast<uint64_t>(StreamSize(targetFile.get()));
    if (targetSize > kMaxPatchedSize) return false;
    spans = WholeStream(targetFile.get(), targetSize).spans;
    SpanBuffer output;
    for (;;) {
        const PatchCommand command = reader.Next();
        switch (command.kind) {
            case PatchCommand::COPY:
                if (!AppendStretch(&output, *this, command.offset, command.length)) return false;
                break;
            case PatchCommand::LITERAL:
                if (!AppendStretch(&output, patchImage, command.dataPosition, command.length)) {
                    return false;
                }
                break;
            case PatchCommand::END_OF_PASS:
                if (output.Size() == 0) break;
                spans = std::move(output.spans);
                output.spans.clear();
                break;
            case PatchCommand::END_OF_FILE:
                if (output.Size() == 0) return true;
                PrintToStdout("warning: no terminator on patch " + patch_path + "\n");
                spans = std::move(output.spans);
                return true;
            case PatchCommand::UNKNOWN: {
                char byte[3];
                snprintf(byte, sizeof byte, "%02x", command.byte);
                PrintToStdout("Unknown patch command " + std::string(byte) + " in " + patch_path +
                              "!\naborting...");
                return false;
            }
            case PatchCommand::TRUNCATED: return false;
        }
    }
}
