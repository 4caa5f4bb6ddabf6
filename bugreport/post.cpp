#include "bugreport/post.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

namespace {

constexpr uint16_t kHttpPort = 80;
constexpr size_t kBodyPiece = 1024;
constexpr size_t kMaxReply = 255;

class Socket {
public:
    Socket() : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
    ~Socket() {
        if (m_fd != -1) close(m_fd);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    bool Connect(const sockaddr_in& peer) {
        return m_fd != -1 &&
               connect(m_fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0;
    }
    // After a failure no reply comes.
    void Send(std::string_view text) { send(m_fd, text.data(), text.size(), MSG_NOSIGNAL); }
    // The first bytes that arrive; empty on failure.
    std::string Receive() {
        char reply[kMaxReply];
        const ssize_t got = recv(m_fd, reply, sizeof reply, 0);
        return std::string(reply, got > 0 ? static_cast<size_t>(got) : 0);
    }

private:
    int m_fd;
};

}  // namespace

int PostBugReport(const char* host, const char* body, unsigned length, const char* query) {
    const hostent* resolved = gethostbyname(host);
    if (resolved == nullptr) return -1;
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(kHttpPort);
    memcpy(&peer.sin_addr, resolved->h_addr_list[0], sizeof peer.sin_addr);
    Socket server;
    if (!server.Connect(peer)) return -3;

    server.Send("POST /x/postbug");
    if (query != nullptr && *query != '\0') server.Send(std::string("?") + query);
    server.Send(" HTTP/1.1\n");
    server.Send(std::string("Host: ") + host + "\n");
    server.Send("Content-Length: " + std::to_string(length) + "\n\n");
    for (std::string_view rest(body, length); !rest.empty();) {
        const size_t piece = std::min(rest.size(), kBodyPiece);
        server.Send(rest.substr(0, piece));
        rest.remove_prefix(piece);
    }

    int status = 0;
    if (sscanf(server.Receive().c_str(), "%*s %d", &status) != 1) return 0;
    return status;
}
