// A listening TCP socket.
#ifndef HALCYRIX_NET_TCP_LISTEN_H
#define HALCYRIX_NET_TCP_LISTEN_H

#include <cstdint>

#include "net/tcp.h"

// Listens on all local addresses once it is constructed, watched for reading; or is closed when the
// port is not to be had, which is logged. Its owner registers it.
class RXTCPListen : public RXTCP {
public:
    explicit RXTCPListen(int port);

    void OnReadable() override;

    // A connection has been accepted. `fd` is in blocking mode, close-on-exec, registered nowhere,
    // and belongs to the callee.
    virtual void OnAccept(int32_t fd, const sockaddr_in& addr) = 0;

protected:
    sockaddr_in m_bindAddr{};
};

#endif
