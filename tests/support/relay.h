// A peer between updater and server that may tamper with what they say.
#ifndef HALCYRIX_TESTS_SUPPORT_RELAY_H
#define HALCYRIX_TESTS_SUPPORT_RELAY_H

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

// Packets as they go over the wire.
std::string FrameOf(const std::string& payload);
std::string FramesOf(const std::vector<std::string>& payloads);

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
Rule Answer(const std::string& tag, const std::vector<std::string>& packets,
            Instead::Then then = Instead::kGoOn);
// The rule that puts something in the place of the reply of this number.
Rule AtReply(int number, const Instead& instead);
// The first of these that has something to say.
Rule Any(std::vector<Rule> rules);

// The updaters' first host, 127.0.0.1, in front of a server on the second, 127.0.0.2. So a client
// that has lost the conversation finishes it with the honest server itself. A relay that finds no
// server there answers what its rule answers.
class Relay {
public:
    explicit Relay(Rule rule = {});
    ~Relay();
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    // The payloads of all requests so far.
    std::vector<std::string> Requests();

    // How many bytes go to the client at a time; set it before anybody connects.
    size_t pieceSize = SIZE_MAX;
    // After how many milliseconds of silence it hangs up; -1 for never. The same.
    int hangUpAfter = -1;

private:
    void Listen();
    void Converse(int client);
    bool Pass(int from, int to, int client, Passing* passing);
    bool Send(int to, const std::string& bytes) const;

    Rule m_rule;
    int m_listening;
    std::mutex m_mutex;  // of the following
    std::vector<std::string> m_requests;
    std::vector<int> m_open;
    std::vector<std::jthread> m_threads;
    std::jthread m_listener;
};

#endif
