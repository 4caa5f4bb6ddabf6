#include "lib/spanbuf/span_buffer.h"

#include <algorithm>
#include <cassert>
#include <iterator>

#include "lib/stream.h"

namespace {

constexpr uint64_t kBlock = 4096;
constexpr size_t kWriteBuffer = 64 * 1024;

}  // namespace

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
    AppendTo(&result, offset, length);
    return result;
}

size_t SpanBuffer::AppendTo(SpanBuffer* target, uint64_t offset, uint64_t length) const {
    assert(!spans.empty());
    if (length == 0 || !Contains(offset, length)) return 0;
    auto si = spans.upper_bound(offset);
    si = si == spans.begin() ? spans.end() : std::prev(si);
    size_t placed = 0;
    for (uint64_t end = target->Size(); length > 0; ++si, ++placed) {
        assert(si != spans.end());
        assert(offset >= (*si).first);
        const uint64_t skipped = offset - si->first;
        const Span& whole = si->second;
        const uint64_t piece = std::min(length, whole.length - skipped);
        target->spans.insert_or_assign(target->spans.end(), end,
                                       Span{whole.file, whole.offset + skipped, piece});
        end += piece;
        offset += piece;
        length -= piece;
    }
    return placed;
}

uint64_t SpanBuffer::WriteSpan(const Span& span, FILE* out, ProgressIndicator* progress,
                               uint64_t done, uint64_t total) {
    MoveTo(span.file, span.offset);
    uint64_t written = 0;
    while (written < span.length) {
        uint8_t piece[kBlock];
        const uint64_t wanted = std::min(span.length - written, kBlock);
        const size_t got = fread(piece, 1, wanted, span.file);
        const size_t put = fwrite(piece, 1, got, out);
        if (got == 0 || put < got) return 0;  // the span's file or the disk ends
        written += put;
        if (progress == nullptr) continue;
        progress->ShowProgress(static_cast<int64_t>(done + written), static_cast<int64_t>(total));
    }
    return written;
}

bool SpanBuffer::Write(FILE* out, ProgressIndicator* progress) const {
    const uint64_t total = Size();
    for (const auto& [start, span] : spans) {
        if (WriteSpan(span, out, progress, start, total) == 0) return false;
    }
    return fflush(out) == 0;  // a short output meets a full disk only here
}

bool SpanBuffer::WriteFile(const std::string& path, ProgressIndicator* progress) const {
    Stream out = OpenForWriting(path);
    if (!out) return false;
    SetBuffer(&out, kWriteBuffer);
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
