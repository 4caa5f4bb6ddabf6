// A non-blocking IPv4 TCP socket that is a source of descriptor events.
#pragma once

#include <netinet/in.h>

#include "net/event_loop.h"

// Owns its descriptor. Closed (m_fd -1, no flags), connecting, or connected. Must be unregistered
// before it is destroyed.
class RXTCP : public IO_Event {
public:
    ~RXTCP() override;

    virtual int IsOpen() { return m_fd >= 0; }

    // Closes an earlier connection and starts a new one. Resolving the name blocks. Returns 1 when
    // the connection is under way or established. The socket then watches for reading and writing;
    // once it is writable, ConnectError() tells the outcome. Returns 0 on failure, which is logged
    // unless the name did not resolve. Does not register the socket.
    [[nodiscard]] int Connect(const char* host, int port);

    // The pending error as text, null for none. Asking clears it. The socket must be open.
    const char* ConnectError();
    // The same as a number, 0 for none.
    int SocketError();

    // Clears the flags and closes the descriptor, if any.
    void Close();

protected:
    sockaddr_in m_peer{};
};

// Makes the descriptor non-blocking.
void SetNonBlocking(int fd);
// Sends small packets at once. Some requests have no reply and must not wait for an acknowledgement
// of the one before.
void SetNoDelay(int fd);
