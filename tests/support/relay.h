// A peer between updater and server that changes packets by a rule.
#pragma once

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "net/frame.h"

// The frame of a packet.
inline std::string FrameOf(const std::string& payload) {
    uint8_t header[kFrameHeaderSize];
    PutFrameHeader(header, static_cast<int>(payload.size()));
    return std::string(header, header + kFrameHeaderSize) + payload;
}

// The payload of the next packet of a connection; std::nullopt at its end.
inline std::optional<std::string> ReadPacket(int fd) {
    uint8_t header[kFrameHeaderSize];
    if (recv(fd, header, sizeof header, MSG_WAITALL) != sizeof header) return std::nullopt;
    std::string payload(static_cast<size_t>(FramePayloadLength(header)), '\0');
    const auto size = static_cast<ssize_t>(payload.size());
    if (recv(fd, payload.data(), payload.size(), MSG_WAITALL) != size) return std::nullopt;
    return payload;
}

// A packet that the relay received.
struct Passing {
    bool isRequest;  // of the client; else a reply of the server
    int number;      // from 0, for each direction of each connection
    std::string payload;
};

// Bytes for the client instead of a packet, which need not be frames, and what to do then.
struct Instead {
    std::string bytes;
    enum Then { kGoOn, kHangUp, kAgainAndAgain } then = kGoOn;
};

// Called for each packet, in the relay's thread. std::nullopt passes the packet on. A request that
// the rule answers does not reach the server.
using Rule = std::function<std::optional<Instead>(const Passing&)>;

// The rule that answers each request by the packets given for its tag.
inline Rule Answer(const std::map<std::string, std::vector<std::string>>& packets,
                   Instead::Then then = Instead::kGoOn) {
    return [=](const Passing& passing) -> std::optional<Instead> {
        const auto answer = packets.find(passing.payload.substr(0, 4));
        if (!passing.isRequest || answer == packets.end()) return std::nullopt;
        std::string bytes;
        for (const std::string& packet : answer->second) bytes += FrameOf(packet);
        return Instead{bytes, then};
    };
}

// The updaters' first host, 127.0.0.1, in front of a server on the second, 127.0.0.2. A client that
// loses the relay goes on with that server. Without a server the relay sends only what its rule
// says. Serves one client after the other.
class Relay {
public:
    // Hangs up after `patience` milliseconds of silence, -1 for never.
    explicit Relay(Rule rule = {}, int patience = -1)
        : m_rule(std::move(rule)), m_patience(patience), m_listening(Open(bind, "127.0.0.1")) {
        if (listen(m_listening, 64) != 0) abort();
        m_thread = std::jthread([this] {
            for (int fd; (fd = accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC)) != -1;) {
                m_client = fd;
                const int server = Open(connect, "127.0.0.2");
                Converse(fd, server);
                close(fd);
                if (server != -1) close(server);
            }
        });
    }
    ~Relay() {
        shutdown(m_listening, SHUT_RDWR);
        m_thread.join();
        close(m_listening);
    }

    // Sends the client of the moment something that it has not asked for.
    void Say(const std::string& bytes) { send(m_client, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

    // The payloads of all requests so far.
    std::vector<std::string> Requests() {
        const std::lock_guard lock(m_mutex);
        return m_requests;
    }

private:
    // A socket for the update port of a host. `call` is bind() or connect().
    template <typename Call>
    static int Open(Call call, const char* host) {
        const sockaddr_in address{AF_INET, htons(21024), {inet_addr(host)}, {}};
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);  // what is accepted has it, too
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        if (call(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
        close(fd);
        return -1;
    }

    void Converse(int client, int server) {
        Passing requests{true, 0, ""}, replies{false, 0, ""};
        // The destructor shuts the listening socket down, which ends the conversation.
        pollfd ready[] = {{client, POLLIN, 0}, {server, POLLIN, 0}, {m_listening, 0, 0}};
        while (poll(ready, 3, m_patience) > 0 && ready[2].revents == 0) {
            if (ready[0].revents != 0 && !Pass(client, server, client, &requests)) break;
            if (ready[1].revents != 0 && !Pass(server, client, client, &replies)) break;
        }
    }

    // Passes on the next packet or its replacement. Returns whether the conversation goes on.
    bool Pass(int from, int to, int client, Passing* passing) {
        const auto packet = ReadPacket(from);
        if (!packet) return false;
        passing->payload = *packet;
        if (passing->isRequest) {
            const std::lock_guard lock(m_mutex);
            m_requests.push_back(*packet);
        }
        const std::optional<Instead> instead = m_rule ? m_rule(*passing) : std::nullopt;
        ++passing->number;
        const auto [bytes, then] = instead.value_or(Instead{FrameOf(*packet)});
        const int receiver = instead ? client : to;
        if (receiver == -1) return true;
        const auto size = static_cast<ssize_t>(bytes.size());
        while (send(receiver, bytes.data(), bytes.size(), MSG_NOSIGNAL) == size) {
            if (then != Instead::kAgainAndAgain) return then == Instead::kGoOn;
        }
        return false;
    }

    const Rule m_rule;
    const int m_patience, m_listening;
    std::atomic<int> m_client = -1;
    std::mutex m_mutex;  // of m_requests
    std::vector<std::string> m_requests;
    std::jthread m_thread;
};
