#include "tests/support/relay.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Uses a socket at the update port of a host in one of two ways: bind() or connect().
template <typename Call>
int Open(Call call, const char* host) {
    const sockaddr_in address{AF_INET, htons(21024), {inet_addr(host)}, {}};
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);  // what is accepted has it, too
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (call(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
    close(fd);
    return -1;
}

// The payload of the next packet; nothing at the end of the connection.
std::optional<std::string> ReadPacket(int fd) {
    uint8_t header[kFrameHeaderSize];
    if (recv(fd, header, sizeof header, MSG_WAITALL) != sizeof header) return std::nullopt;
    std::string payload(static_cast<size_t>(FramePayloadLength(header)), '\0');
    const ssize_t got = recv(fd, payload.data(), payload.size(), MSG_WAITALL);
    return got == ssize_t(payload.size()) ? std::optional(payload) : std::nullopt;
}

// Returns false when the peer has gone.
bool Send(int to, const std::string& bytes) {
    return send(to, bytes.data(), bytes.size(), MSG_NOSIGNAL) == ssize_t(bytes.size());
}

}  // namespace

Rule Answer(const std::map<std::string, std::vector<std::string>>& packets, Instead::Then then) {
    return [=](const Passing& passing) -> std::optional<Instead> {
        const auto answer = packets.find(passing.payload.substr(0, 4));
        if (!passing.isRequest || answer == packets.end()) return std::nullopt;
        std::string bytes;
        for (const std::string& packet : answer->second) bytes += FrameOf(packet);
        return Instead{bytes, then};
    };
}

Relay::Relay(Rule rule, int patience)
    : m_rule(std::move(rule)), m_patience(patience), m_listening(Open(bind, "127.0.0.1")) {
    EXPECT_EQ(listen(m_listening, 64), 0);
    m_thread = std::jthread([this] {
        for (int client; (client = accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC)) != -1;) {
            const int server = Open(connect, "127.0.0.2");
            Converse(client, server);
            close(client);
            if (server != -1) close(server);
        }
    });
}

Relay::~Relay() {
    shutdown(m_listening, SHUT_RDWR);
    m_thread.join();
    close(m_listening);
}

std::vector<std::string> Relay::Requests() {
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

void Relay::Converse(int client, int server) {
    Passing requests{true, 0, ""}, replies{false, 0, ""};
    // The listening socket shows its end.
    pollfd ready[] = {{client, POLLIN, 0}, {server, POLLIN, 0}, {m_listening, 0, 0}};
    while (poll(ready, 3, m_patience) > 0 && ready[2].revents == 0) {
        if (ready[0].revents != 0 && !Pass(client, server, client, &requests)) break;
        if (ready[1].revents != 0 && !Pass(server, client, client, &replies)) break;
    }
}

// Returns whether the conversation goes on.
bool Relay::Pass(int from, int to, int client, Passing* passing) {
    const std::optional<std::string> packet = ReadPacket(from);
    if (!packet) return false;
    passing->payload = *packet;
    if (passing->isRequest) {
        const std::lock_guard lock(m_mutex);
        m_requests.push_back(*packet);
    }
    const std::optional<Instead> instead = m_rule ? m_rule(*passing) : std::nullopt;
    ++passing->number;
    if (!instead) return to == -1 || Send(to, FrameOf(*packet));
    do {
        if (!Send(client, instead->bytes)) return false;
    } while (instead->then == Instead::kAgainAndAgain);
    return instead->then == Instead::kGoOn;
}
