#include "net/packet_tcp.h"

#include <sys/socket.h>

#include <cstring>

#include "log/gamelog.h"

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
    while (m_rxLen < kMaxFrame && IsOpen()) {
        const int room = kMaxFrame - m_rxLen;
        const auto got = static_cast<int>(recv(m_fd, m_rxBuf + m_rxLen, room, 0));
        if (got == 0) {
            OnDisconnect();
            return;
        }
        if (got == -1) return;  // drained, or an error: the next readiness then shows the end
        m_rxLen += got;
        if (!DeliverPackets()) return;
        if (got < room) return;
    }
}

// Returns false when the connection that the bytes came from is gone.
bool RXPacketTCP::DeliverPackets() {
    const uint32_t connection = m_connection;
    while (m_rxLen >= kFrameHeaderSize) {
        const int length = FramePayloadLength(m_rxBuf);
        if (length > kMaxPayload) {
            gamelog->Printf("Invalid packet size; disconnecting\n");
            Close();
            OnDisconnect();
            return false;
        }
        const int frame = kFrameHeaderSize + length;
        if (m_rxLen < frame) break;
        OnPacket(m_rxBuf + kFrameHeaderSize, length);
        if (m_connection != connection) return false;
        m_rxLen -= frame;
        memmove(m_rxBuf, m_rxBuf + frame, static_cast<size_t>(m_rxLen));
    }
    return true;
}
