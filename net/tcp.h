// A non-blocking IPv4 TCP socket that is a source of descriptor events.
#ifndef HALCYRIX_NET_TCP_H
#define HALCYRIX_NET_TCP_H

#include <netinet/in.h>

#include "net/event_loop.h"

// Owns its descriptor: closed (m_fd -1, no flags), connecting, or connected. The destructor closes
// the descriptor but does not unregister the socket; its owner does that first.
class RXTCP : public IO_Event {
public:
    ~RXTCP() override;

    virtual int IsOpen() { return m_fd >= 0; }

    // Starts a connection, dropping an earlier one. Returns 1 when it is under way or established:
    // it is then watched for reading and writing, and writability tells that ConnectError() can be
    // asked for the outcome. Returns 0 on failure, which is logged unless the name did not resolve.
    // The name is resolved before the call returns. Does not register the socket.
    [[nodiscard]] int Connect(const char* host, int port);

    // The socket's pending error as text, null when there is none; asking clears it. Only for an
    // open socket.
    const char* ConnectError();
    // The same as a number, 0 for none.
    int SocketError();

    // Clears the flags and closes the descriptor, if there is one.
    void Close();

protected:
    sockaddr_in m_peer{};
};

// Makes the descriptor non-blocking.
void SetNonBlocking(int fd);
// Sends small packets at once. Requests are small, and the first few have no reply: none may wait
// for an acknowledgement of the one before.
void SetNoDelay(int fd);

#endif
