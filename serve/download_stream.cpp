#include "serve/download_stream.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>

#include "update/messages.h"

namespace {

// libevent allocates powers of two. With libevent's own header this is just below one.
constexpr int kPiecesAtOnce = 15;
constexpr size_t kEnough = size_t{kPiecesAtOnce} * kMaxFrame;

bool HasRoom(evbuffer* output) { return evbuffer_get_length(output) + kMaxFrame <= kEnough; }

}  // namespace

bool DownloadStream::Add(const Release& release, uint32_t index) {
    const size_t place = index - release.FirstIndex();
    if (place >= m_asked.size()) m_asked.resize(place + 1);
    if (m_asked[place]) return false;
    m_asked[place] = true;
    m_last = index;
    return true;
}

DownloadStream::Result DownloadStream::Fill(const Release& release, evbuffer* output) {
    evbuffer_expand(output, kEnough);
    while (HasRoom(output)) {
        while (m_place < m_asked.size() && !m_asked[m_place]) ++m_place;
        if (m_place == m_asked.size()) {
            AddPacket(output, Encode(DownloadHeader{kEndOfDownloads, 0, 0, 0}));
            return COMPLETE;
        }
        if (!(m_file ? SendPieces(output) : Begin(release, output))) return READ_FAILED;
    }
    return MORE;
}

bool DownloadStream::Begin(const Release& release, evbuffer* output) {
    const uint32_t index = release.FirstIndex() + m_place;
    const StoredFile download = release.Stored(index);
    const auto resumed = m_offsets.find(index);
    const uint32_t offset = resumed == m_offsets.end() ? 0 : resumed->second;
    m_file = OpenForReading(download.path);
    if (!m_file || StreamSize(m_file.get()) != download.length) return false;
    m_remaining = download.length - offset;
    if (lseek(fileno(m_file.get()), offset, SEEK_SET) == -1) return false;
    AddPacket(output, Encode(DownloadHeader{index, download.checksum, download.length, offset}));
    return true;
}

// Reads as many packets as the buffer has room for in one call: the frame headers between them are
// stepped over. A packet that is not full, maybe empty, ends the file.
bool DownloadStream::SendPieces(evbuffer* output) {
    evbuffer_iovec space;
    const size_t room = kEnough - evbuffer_get_length(output);
    if (evbuffer_reserve_space(output, static_cast<ev_ssize_t>(room), &space, 1) != 1) return false;
    iovec pieces[kPiecesAtOnce];
    int count = 0;
    ssize_t wanted = 0;
    bool last = false;
    auto* at = static_cast<uint8_t*>(space.iov_base);
    while (!last && at + kMaxFrame <= static_cast<uint8_t*>(space.iov_base) + room) {
        const auto length = static_cast<int>(std::min<uint32_t>(m_remaining, kDataPacketSize));
        PutFrameHeader(at, length);
        pieces[count++] = {at + kFrameHeaderSize, static_cast<size_t>(length)};
        at += kFrameHeaderSize + length;
        m_remaining -= static_cast<uint32_t>(length);
        wanted += length;
        last = length < kDataPacketSize;
    }
    if (readv(fileno(m_file.get()), pieces, count) != wanted) return false;
    space.iov_len = static_cast<size_t>(at - static_cast<uint8_t*>(space.iov_base));
    evbuffer_commit_space(output, &space, 1);
    if (!last) return true;
    m_file.reset();
    ++m_filesSent;
    ++m_place;
    return true;
}
