#include "serve/download_stream.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>

#include "update/messages.h"

namespace {
constexpr int kPiecesAtOnce = 16;
}

bool DownloadStream::Add(Download download) {
    if (!m_indexes.insert(download.index).second) return false;
    m_downloads.push_back(std::move(download));
    return true;
}

DownloadStream::Result DownloadStream::Fill(OutputBuffer* output) {
    while (!m_ended && output->HasRoom()) {
        if (m_current == m_downloads.size()) {
            output->AddPacket(Encode(DownloadHeader{kEndOfDownloads, 0, 0, 0}));
            m_ended = true;
        } else if (!(m_file ? SendPieces(output) : Begin(output))) {
            return UNREADABLE;
        }
    }
    return m_ended ? COMPLETE : MORE;
}

bool DownloadStream::Begin(OutputBuffer* output) {
    const Download& download = m_downloads[m_current];
    m_file = OpenForReading(download.path);
    if (!m_file || StreamSize(m_file.get()) != download.length) return false;
    m_remaining = download.length - download.startOffset;
    if (lseek(fileno(m_file.get()), download.startOffset, SEEK_SET) == -1) return false;
    output->AddPacket(Encode(
        DownloadHeader{download.index, download.checksum, download.length, download.startOffset}));
    return true;
}

// Reads as many packets as the buffer has room for in one call: the frame headers between them are
// stepped over. A packet that is not full, maybe empty, ends the file.
bool DownloadStream::SendPieces(OutputBuffer* output) {
    iovec pieces[kPiecesAtOnce];
    int count = 0;
    ssize_t wanted = 0;
    bool last = false;
    output->KeepInPlace();
    while (!last && count < kPiecesAtOnce && output->HasRoom()) {
        const auto length = static_cast<int>(std::min<uint32_t>(m_remaining, kDataPacketSize));
        pieces[count++] = {output->AddPacketInPlace(length), static_cast<size_t>(length)};
        m_remaining -= static_cast<uint32_t>(length);
        wanted += length;
        last = length < kDataPacketSize;
    }
    if (readv(fileno(m_file.get()), pieces, count) != wanted) return false;
    if (last) {
        m_file.reset();
        ++m_current;
    }
    return true;
}
