#include "lib/spanbuf/span_writer.h"

#include <unistd.h>

#include <algorithm>

namespace {

constexpr uint64_t kPiece = 4096;  // of the progress

constexpr size_t kCollected = 64 * 1024;

// Files are read this much at a time: the least after a jump, and twice as much each time that the
// next bytes wanted are close to the last ones.
constexpr size_t kLeastAhead = 1024;
constexpr size_t kMostAhead = 64 * 1024;

constexpr uint64_t kLongSpan = 64 * 1024;
constexpr uint64_t kCopiedAtOnce = 1024 * 1024;

}  // namespace

SpanWriter::SpanWriter(FILE* out) : m_out(out), m_good(fflush(out) == 0) {
    m_collected.reserve(kCollected);
}

uint64_t SpanWriter::Write(const Span& span, ProgressIndicator* progress, uint64_t done,
                           uint64_t total) {
    const auto report = [&](uint64_t written) {
        if (progress == nullptr) return;
        progress->SetProgress(static_cast<int32_t>(done + written), static_cast<int32_t>(total));
    };
    uint64_t written = 0;
    while (span.length >= kLongSpan && written < span.length) {
        const uint64_t wanted = std::min(span.length - written, kCopiedAtOnce);
        const uint64_t end = written + CopyInKernel(span, written, wanted);
        for (uint64_t piece = written + kPiece; piece <= end; piece += kPiece) report(piece);
        if (end == span.length && end % kPiece != 0) report(end);
        const bool stopped = end < written + wanted;
        written = end;
        if (stopped) break;  // the kernel cannot, or nothing is left: what comes next will tell
    }
    while (written < span.length) {
        auto length = static_cast<size_t>(std::min(span.length - written, kPiece));
        const uint8_t* bytes = Read(span.file, span.offset + written, &length);
        if (length == 0) return 0;  // the stream ends before the span does
        if (!Collect(bytes, length)) return 0;
        written += length;
        report(written);
    }
    return written;
}

bool SpanWriter::Finish() {
    m_good = WriteCollected() && m_good;
    // The stream goes on where the descriptor stands.
    fseeko(m_out, lseek(fileno(m_out), 0, SEEK_CUR), SEEK_SET);
    return m_good;
}

SpanWriter::Window& SpanWriter::WindowOf(FILE* file) {
    for (Window& window : m_windows) {
        if (window.file == file) return window;
    }
    return m_windows.emplace_back(Window{file, 0, 0, 0, std::vector<uint8_t>(kMostAhead)});
}

const uint8_t* SpanWriter::Read(FILE* file, uint64_t offset, size_t* length) {
    Window& window = WindowOf(file);
    const uint64_t end = window.begin + window.size;
    if (offset < window.begin || offset + *length > end) {
        const bool close = offset >= window.begin && offset <= end + kPiece;
        window.ahead = close ? std::min(window.ahead * 2, kMostAhead) : 0;
        window.ahead = std::max({window.ahead, kLeastAhead, *length});
        const ssize_t got =
            pread(fileno(file), window.bytes.data(), window.ahead, static_cast<off_t>(offset));
        window.begin = offset;
        window.size = got > 0 ? static_cast<size_t>(got) : 0;
    }
    const auto skipped = static_cast<size_t>(offset - window.begin);
    *length = std::min(*length, window.size - skipped);
    return window.bytes.data() + skipped;
}

bool SpanWriter::Collect(const uint8_t* bytes, size_t length) {
    if (m_collected.size() + length > kCollected && !WriteCollected()) return false;
    m_collected.insert(m_collected.end(), bytes, bytes + length);
    return m_good;
}

bool SpanWriter::WriteCollected() {
    for (size_t done = 0; m_good && done < m_collected.size();) {
        const ssize_t put =
            write(fileno(m_out), m_collected.data() + done, m_collected.size() - done);
        m_good = put > 0;
        done += m_good ? static_cast<size_t>(put) : 0;
    }
    m_collected.clear();
    return m_good;
}

// Returns how many of the bytes were copied: less than all when the two files do not go together
// or one of them has no more room or bytes.
uint64_t SpanWriter::CopyInKernel(const Span& span, uint64_t from, uint64_t length) {
    if (!WriteCollected()) return 0;
    auto offset = static_cast<off_t>(span.offset + from);
    uint64_t copied = 0;
    while (copied < length) {
        const ssize_t got =
            copy_file_range(fileno(span.file), &offset, fileno(m_out), nullptr, length - copied, 0);
        if (got <= 0) break;
        copied += static_cast<uint64_t>(got);
    }
    return copied;
}
