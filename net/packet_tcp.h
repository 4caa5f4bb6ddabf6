// A TCP connection that carries packets, each in a frame (net/frame.h).
#pragma once

#include <cstdint>

#include "net/frame.h"
#include "net/tcp.h"

// Gathers received bytes until a packet is complete and delivers each complete packet. Allocates
// nothing while it runs.
class RXPacketTCP : public RXTCP {
public:
    RXPacketTCP() = default;
    // Takes over a descriptor that a listener has accepted. Must be non-blocking: OnReadable()
    // reads until a read comes back short.
    RXPacketTCP(int32_t fd, uint32_t flags);

    // Reads and delivers a bounded amount. The descriptor stays readable when there is more.
    void OnReadable() override;

    // One complete packet, of 0 to kMaxPayload bytes. `data` is valid during the call only. May
    // send, close the connection (complete frames already received are still delivered) or connect
    // anew (the old connection's bytes are dropped), but not destroy the object.
    virtual void OnPacket(const uint8_t* data, int length) = 0;

    // The peer has closed the connection, or a frame was invalid and the connection is closed. May
    // connect anew.
    virtual void OnDisconnect() = 0;

    // RXTCP::Connect() with an empty receive buffer.
    [[nodiscard]] int Connect(const char* host, int port);

    // Sends one frame with a single send(). Returns 0 when that fails, for a negative length, and
    // for more than kMaxPayload bytes, which is logged. A short write counts as sent.
    int SendPacket(const void* data, int length);

    // Reads and drops the complete frames that the socket holds now. Leaves an incomplete or
    // invalid frame and the end of the connection for OnReadable(). Not to be called from
    // OnPacket().
    void DropPackets();

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
