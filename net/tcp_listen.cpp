#include "net/tcp_listen.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "log/gamelog.h"

namespace {
constexpr int kBacklog = 4;
}

RXTCPListen::RXTCPListen(int port) {
    m_bindAddr.sin_family = AF_INET;
    m_bindAddr.sin_port = htons(static_cast<uint16_t>(port));
    m_bindAddr.sin_addr.s_addr = htonl(INADDR_ANY);

    m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(m_fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const bool bound =
        bind(m_fd, reinterpret_cast<const sockaddr*>(&m_bindAddr), sizeof m_bindAddr) == 0;
    if (bound) SetNonBlocking(m_fd);
    // bind() succeeds for two sockets as long as neither listens; listen() then fails for the
    // second.
    if (!bound || listen(m_fd, kBacklog) == -1) {
        gamelog->Printf("RXTCPListen: %s\n", strerror(errno));
        Close();
        return;
    }
    SetFlags(IO_READ);
}

void RXTCPListen::OnReadable() {
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    const int fd = accept4(m_fd, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
    if (fd < 0) return;
    OnAccept(fd, peer);
}
