#include "net/tcp.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "log/gamelog.h"

void SetNonBlocking(int fd) { fcntl(fd, F_SETFL, O_NONBLOCK); }

void SetNoDelay(int fd) {
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

RXTCP::~RXTCP() { Close(); }

void RXTCP::Close() {
    SetFlags(0);
    if (m_fd != -1) close(m_fd);
    m_fd = -1;
}

int RXTCP::Connect(const char* host, int port) {
    m_peer = {};
    Close();

    const hostent* resolved = gethostbyname(host);
    if (resolved == nullptr) return 0;
    memcpy(&m_peer.sin_addr, resolved->h_addr_list[0],
           std::min<size_t>(static_cast<size_t>(resolved->h_length), sizeof m_peer.sin_addr));

    m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_fd == -1) {
        gamelog->Printf("socket: %s\n", strerror(errno));
        return 0;
    }
    SetNonBlocking(m_fd);
    SetNoDelay(m_fd);
    m_peer.sin_family = AF_INET;
    m_peer.sin_port = htons(static_cast<uint16_t>(port));
    if (connect(m_fd, reinterpret_cast<const sockaddr*>(&m_peer), sizeof m_peer) == -1 &&
        errno != EINPROGRESS) {
        gamelog->Printf("connect: %s\n", strerror(errno));
        return 0;
    }
    SetFlags(IO_WRITE | IO_READ);
    return 1;
}

int RXTCP::SocketError() {
    int error = 0;
    socklen_t length = sizeof error;
    getsockopt(m_fd, SOL_SOCKET, SO_ERROR, &error, &length);
    return error;
}

const char* RXTCP::ConnectError() {
    const int error = SocketError();
    return error == 0 ? nullptr : strerror(error);
}
