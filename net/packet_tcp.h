// A TCP connection that carries packets, each in a frame of its own.
#ifndef HALCYRIX_NET_PACKET_TCP_H
#define HALCYRIX_NET_PACKET_TCP_H

#include <cstdint>

#include "net/frame.h"
#include "net/tcp.h"

// Gathers received bytes until a packet is complete and hands each complete packet on. Allocates
// nothing while it runs.
class RXPacketTCP : public RXTCP {
public:
    RXPacketTCP() = default;
    // Takes over a descriptor that a listener has accepted, made non-blocking: a read that fills
    // the buffer is followed by another.
    RXPacketTCP(int32_t fd, uint32_t flags);

    void OnReadable() override;

    // One complete packet, of 0 to kMaxPayload bytes. `data` is valid during the call only. May
    // send, close the connection (what was already received is still delivered, an invalid frame
    // included) or connect anew (what was received of the old connection is forgotten), but not
    // destroy the object.
    virtual void OnPacket(const uint8_t* data, int length) = 0;

    // The peer has closed the connection, or a frame was invalid and the connection is closed. May
    // connect anew.
    virtual void OnDisconnect() = 0;

    // As RXTCP::Connect, with an empty receive buffer.
    [[nodiscard]] int Connect(const char* host, int port);

    // Hands one frame to the socket. Returns 0 for a payload of more than kMaxPayload bytes, which
    // is logged, for a negative length, and when the send fails. There is no queue: a short write
    // counts as sent.
    int SendPacket(const void* data, int length);

private:
    bool DeliverPackets();

    // Begins with the first byte of a frame that has not been delivered:
    //
    //   | length | payload ... | length | payl          unused |
    //   0                                     m_rxLen          kMaxFrame
    uint8_t m_rxBuf[kMaxFrame];
    int32_t m_rxLen = 0;
    uint32_t m_connection = 0;  // counts calls of Connect()
};

#endif
