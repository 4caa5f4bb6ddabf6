#include "net/packet_tcp.h"

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstring>

#include "log/gamelog.h"

namespace {

// Reads in one call. A peer that never stops sending must not keep the dispatcher from its timers.
constexpr int kMostReads = 16;

// The size of the frame that `bytes` begins with; 0 when it is incomplete or invalid.
int CompleteFrame(const uint8_t* bytes, int size) {
    if (size < kFrameHeaderSize) return 0;
    const int length = FramePayloadLength(bytes);
    const int frame = kFrameHeaderSize + length;
    return length <= kMaxPayload && frame <= size ? frame : 0;
}

}  // namespace

RXPacketTCP::RXPacketTCP(int32_t fd, uint32_t flags) {
    m_fd = fd;
    SetFlags(flags);
}

int RXPacketTCP::Connect(const char* host, int port) {
    ++m_connection;
    m_rxLen = 0;
    return RXTCP::Connect(host, port);
}

int RXPacketTCP::SendPacket(const void* data, int length) {
    if (length > kMaxPayload) {
        gamelog->Printf("SendPacket: packet too large\n");
        return 0;
    }
    if (length < 0) return 0;
    uint8_t frame[kMaxFrame];
    PutFrameHeader(frame, length);
    if (length > 0) memcpy(frame + kFrameHeaderSize, data, static_cast<size_t>(length));
    return send(m_fd, frame, kFrameHeaderSize + length, 0) != -1;
}

void RXPacketTCP::OnReadable() {
    for (int reads = 0; reads < kMostReads && m_rxLen < kMaxFrame && IsOpen(); ++reads) {
        const int room = kMaxFrame - m_rxLen;
        const auto got = static_cast<int>(recv(m_fd, m_rxBuf + m_rxLen, room, 0));
        if (got == 0) {
            OnDisconnect();
            return;
        }
        if (got == -1) return;  // drained, or an error that the next read shows
        m_rxLen += got;
        if (!DeliverPackets()) return;
        if (got < room) return;
    }
}

// Returns false when the connection that the bytes came from is gone.
bool RXPacketTCP::DeliverPackets() {
    const uint32_t connection = m_connection;
    int begin = 0;
    while (const int frame = CompleteFrame(m_rxBuf + begin, m_rxLen - begin)) {
        OnPacket(m_rxBuf + begin + kFrameHeaderSize, frame - kFrameHeaderSize);
        if (m_connection != connection) return false;
        begin += frame;
    }
    if (!IsOpen()) return false;
    m_rxLen -= begin;
    memmove(m_rxBuf, m_rxBuf + begin, static_cast<size_t>(m_rxLen));
    if (m_rxLen < kFrameHeaderSize || FramePayloadLength(m_rxBuf) <= kMaxPayload) return true;
    gamelog->Printf("Invalid packet size; disconnecting\n");
    Close();
    OnDisconnect();
    return false;
}

void RXPacketTCP::DropPackets() {
    int held = 0;
    ioctl(m_fd, FIONREAD, &held);
    while (held > 0) {
        // Peeks first, so that an invalid frame stays readable.
        const auto got =
            static_cast<int>(recv(m_fd, m_rxBuf + m_rxLen, kMaxFrame - m_rxLen, MSG_PEEK));
        if (got <= 0) return;
        const int end = m_rxLen + got;
        int dropped = 0;
        while (const int frame = CompleteFrame(m_rxBuf + dropped, end - dropped)) dropped += frame;
        if (dropped == 0) return;
        held -= static_cast<int>(recv(m_fd, m_rxBuf + m_rxLen, dropped - m_rxLen, 0));
        m_rxLen = 0;
    }
}
