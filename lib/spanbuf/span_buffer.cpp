#include "lib/spanbuf/span_buffer.h"

#include <algorithm>
#include <cassert>
#include <iterator>

#include "lib/stream.h"

namespace {
constexpr uint64_t kPiece = 4096;
}

uint64_t SpanBuffer::Size() const {
    if (spans.empty()) return 0;
    const auto& [start, last] = *spans.rbegin();
    return start + last.length;
}

uint64_t SpanBuffer::Append(const SpanBuffer& other) {
    if (&other == this) return Append(SpanBuffer(other));
    uint64_t end = Size();
    for (const auto& [start, span] : other.spans) {
        spans.insert_or_assign(spans.end(), end, span);
        end += span.length;
    }
    return end;
}

bool SpanBuffer::Contains(uint64_t offset, uint64_t length) const {
    const uint64_t size = Size();
    return offset <= size && length <= size - offset;
}

SpanBuffer SpanBuffer::SubSpan(uint64_t offset, uint64_t length) const {
    SpanBuffer result;
    assert(!spans.empty());
    if (length == 0 || !Contains(offset, length)) return result;
    uint64_t end = 0;
    while (length > 0) {
        auto si = spans.upper_bound(offset);
        si = si == spans.begin() ? spans.end() : std::prev(si);
        assert(si != spans.end());
        assert(offset >= (*si).first);
        const uint64_t skipped = offset - si->first;
        const Span& whole = si->second;
        const uint64_t piece = std::min(length, whole.length - skipped);
        result.spans.emplace_hint(result.spans.end(), end,
                                  Span{whole.file, whole.offset + skipped, piece});
        end += piece;
        offset += piece;
        length -= piece;
    }
    return result;
}

uint64_t SpanBuffer::WriteSpan(const Span& span, FILE* out, ProgressIndicator* progress,
                               uint64_t done, uint64_t total) {
    fseeko(span.file, static_cast<off_t>(span.offset), SEEK_SET);
    uint64_t written = 0;
    uint8_t piece[kPiece];
    while (written < span.length) {
        const auto wanted = static_cast<size_t>(std::min(span.length - written, kPiece));
        const size_t got = fread(piece, 1, wanted, span.file);
        if (got == 0) return 0;  // the stream ends before the span does
        if (fwrite(piece, 1, got, out) < got) return 0;
        written += got;
        if (progress != nullptr) {
            progress->SetProgress(static_cast<int32_t>(done + written),
                                  static_cast<int32_t>(total));
        }
    }
    return written;
}

bool SpanBuffer::Write(FILE* out, ProgressIndicator* progress) const {
    const uint64_t total = Size();
    uint64_t done = 0;
    for (const auto& [start, span] : spans) {
        const uint64_t written = WriteSpan(span, out, progress, done, total);
        if (written == 0) return false;
        done += written;
    }
    return fflush(out) == 0;  // a full device may show only here
}

bool SpanBuffer::WriteFile(const std::string& path, ProgressIndicator* progress) const {
    Stream out = OpenForWriting(path);
    if (!out) return false;
    const bool written = Write(out.get(), progress);
    return CloseWritten(std::move(out)) && written;
}

void SpanBuffer::Dump() const {
    int number = 0;
    for (const auto& [start, span] : spans) {
        printf("span #%-3d [%10u - %10u]: file %p offset %-10u len %u\n", ++number,
               static_cast<uint32_t>(start), static_cast<uint32_t>(start + span.length),
               static_cast<void*>(span.file), static_cast<uint32_t>(span.offset),
               static_cast<uint32_t>(span.length));
    }
}
