#include "release/download_stream.h"

#include <unistd.h>

#include <algorithm>

#include "update/messages.h"

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
        } else if (!(m_file ? SendPiece(output) : Begin(output))) {
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

// A piece shorter than a full packet, maybe empty, ends the file.
bool DownloadStream::SendPiece(OutputBuffer* output) {
    const auto length = static_cast<int>(std::min<uint32_t>(m_remaining, kDataPacketSize));
    uint8_t* piece = output->AddPacketInPlace(length);
    if (read(fileno(m_file.get()), piece, static_cast<size_t>(length)) != length) return false;
    m_remaining -= static_cast<uint32_t>(length);
    if (length < kDataPacketSize) {
        m_file.reset();
        ++m_current;
    }
    return true;
}
