#include "tests/support/relay.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "update/messages.h"

namespace {

sockaddr_in HostAddress(const char* host) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kUpdatePort);
    address.sin_addr.s_addr = inet_addr(host);
    return address;
}

// The payload of the next packet; nothing at the end of the connection.
std::optional<std::string> ReadPacket(int fd) {
    uint8_t header[kFrameHeaderSize];
    if (recv(fd, header, sizeof header, MSG_WAITALL) != sizeof header) return std::nullopt;
    std::string payload(static_cast<size_t>(FramePayloadLength(header)), '\0');
    const auto size = static_cast<ssize_t>(payload.size());
    if (recv(fd, payload.data(), payload.size(), MSG_WAITALL) != size) return std::nullopt;
    return payload;
}

}  // namespace

std::string FrameOf(const std::string& payload) {
    uint8_t header[kFrameHeaderSize];
    PutFrameHeader(header, static_cast<int>(payload.size()));
    return std::string(header, header + kFrameHeaderSize) + payload;
}

std::string FramesOf(const std::vector<std::string>& payloads) {
    std::string frames;
    for (const std::string& payload : payloads) frames += FrameOf(payload);
    return frames;
}

Rule Answer(const std::string& tag, const std::vector<std::string>& packets, Instead::Then then) {
    return [=](const Passing& passing) -> std::optional<Instead> {
        if (!passing.isRequest || !passing.payload.starts_with(tag)) return std::nullopt;
        return Instead{FramesOf(packets), then};
    };
}

Rule AtReply(int number, const Instead& instead) {
    return [=](const Passing& passing) -> std::optional<Instead> {
        if (passing.isRequest || passing.number != number) return std::nullopt;
        return instead;
    };
}

Rule Any(std::vector<Rule> rules) {
    return [rules = std::move(rules)](const Passing& passing) -> std::optional<Instead> {
        for (const Rule& rule : rules) {
            if (const auto instead = rule(passing)) return instead;
        }
        return std::nullopt;
    };
}

Relay::Relay(Rule rule)
    : m_rule(std::move(rule)), m_listening(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int on = 1;
    setsockopt(m_listening, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address = HostAddress("127.0.0.1");
    if (bind(m_listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(m_listening, 64) != 0) {
        ADD_FAILURE() << "the relay cannot listen";
    }
    m_listener = std::jthread([this] { Listen(); });
}

Relay::~Relay() {
    shutdown(m_listening, SHUT_RDWR);
    m_listener.join();
    {
        const std::lock_guard lock(m_mutex);
        for (const int fd : m_open) shutdown(fd, SHUT_RDWR);
    }
    m_threads.clear();
    for (const int fd : m_open) close(fd);
    close(m_listening);
}

std::vector<std::string> Relay::Requests() {
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

void Relay::Listen() {
    for (int fd; (fd = accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC)) != -1;) {
        const std::lock_guard lock(m_mutex);
        m_open.push_back(fd);
        m_threads.emplace_back([this, fd] { Converse(fd); });
    }
}

void Relay::Converse(int client) {
    const int on = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    setsockopt(server, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    {
        const std::lock_guard lock(m_mutex);
        m_open.push_back(server);
    }
    const sockaddr_in address = HostAddress("127.0.0.2");
    if (connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        server = -1;
    }
    Passing requests{true, 0, ""}, replies{false, 0, ""};
    pollfd ready[] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
    while (poll(ready, 2, hangUpAfter) > 0) {
        if (ready[0].revents != 0 && !Pass(client, server, client, &requests)) break;
        if (ready[1].revents != 0 && !Pass(server, client, client, &replies)) break;
    }
    shutdown(client, SHUT_RDWR);
    shutdown(server, SHUT_RDWR);
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

bool Relay::Send(int to, const std::string& bytes) const {
    for (size_t at = 0; at < bytes.size();) {
        const ssize_t sent =
            send(to, bytes.data() + at, std::min(bytes.size() - at, pieceSize), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        at += static_cast<size_t>(sent);
    }
    return true;
}
