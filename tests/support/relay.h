// A peer between updater and server that may tamper with what they say.
#ifndef HALCYRIX_TESTS_SUPPORT_RELAY_H
#define HALCYRIX_TESTS_SUPPORT_RELAY_H

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "net/frame.h"

// Packets as they go over the wire.
inline std::string FrameOf(const std::string& payload) {
    uint8_t header[kFrameHeaderSize];
    PutFrameHeader(header, static_cast<int>(payload.size()));
    return std::string(header, header + kFrameHeaderSize) + payload;
}

// A packet that has come.
struct Passing {
    bool isRequest;  // of the client; else a reply of the server
    int number;      // from 0, in its direction and connection
    std::string payload;
};

// What goes to the client in its place: bytes, which need not be frames, and what comes then.
struct Instead {
    std::string bytes;
    enum Then { kGoOn, kHangUp, kAgainAndAgain } then = kGoOn;
};

// Decides for each packet; nothing lets it pass as it is. It is asked in the relay's thread. A
// request that is answered does not reach the server.
using Rule = std::function<std::optional<Instead>(const Passing&)>;

// The rule that answers the requests that begin with a tag by these packets.
Rule Answer(const std::map<std::string, std::vector<std::string>>& packets,
            Instead::Then then = Instead::kGoOn);

// The updaters' first host, 127.0.0.1, in front of a server on the second, 127.0.0.2. So a client
// that has lost the conversation finishes it with the honest server itself. A relay that finds no
// server there answers what its rule answers. Serves one client after the other.
class Relay {
public:
    // Hangs up after so many milliseconds of silence, -1 for never.
    explicit Relay(Rule rule = {}, int patience = -1);
    ~Relay();

    // The payloads of all requests so far.
    std::vector<std::string> Requests();

private:
    void Converse(int client, int server);
    bool Pass(int from, int to, int client, Passing* passing);

    const Rule m_rule;
    const int m_patience, m_listening;
    std::mutex m_mutex;  // of m_requests
    std::vector<std::string> m_requests;
    std::jthread m_thread;
};

#endif
