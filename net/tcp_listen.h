// A listening TCP socket.
#pragma once

#include <cstdint>

#include "net/tcp.h"

// Listens on all local addresses and watches for reading. Closed when the port cannot be bound,
// which is logged. The owner registers it.
class RXTCPListen : public RXTCP {
public:
    explicit RXTCPListen(int port);

    void OnReadable() override;

    // A connection has been accepted. `fd` is blocking and close-on-exec; the callee owns it.
    virtual void OnAccept(int32_t fd, const sockaddr_in& addr) = 0;

protected:
    sockaddr_in m_bindAddr{};
};
