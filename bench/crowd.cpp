// Many clients of an update server, which throw away what they download; see --help.

#include <arpa/inet.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <list>
#include <string>

#include "tests/support/relay.h"
#include "update/messages.h"

namespace {

constexpr char kHelp[] =
    "Each client asks the server for the first file of the component, from addresses below\n"
    "127.1.0.0 that 90 clients share. Prints the rate of all together, the best rate of one, and\n"
    "how long the fastest and the slowest client took, from its connection to the end of its\n"
    "download, the wait in the server's queue included.\n"
    "With --wait nobody downloads until all have been told their place in the queue, and for so\n"
    "many seconds after that. Prints before the rates how often each was told its place in those\n"
    "seconds, and at the end how far any client was served out of the order of the places.";
constexpr size_t kReadSize = size_t{256} * 1024;
constexpr int kClientsOfAddress = 90;

double Now() {  // seconds
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count();
}

struct Options {
    std::string component, host = "127.0.0.3";
    int clients = 0, atATime = 0, port = kUpdatePort, wait = 0, server = 0;
} options;
bool holding = false;  // slots, while the others wait
int placed = 0;        // clients that have a slot or have been told their place
int ready = 0;         // that have a slot or had one

// One conversation, from the greeting to the end of the download stream.
class Client {
public:
    explicit Client(int number) {
        const auto address = static_cast<uint32_t>(number / kClientsOfAddress);
        sockaddr_in own{AF_INET, 0, {htonl(0x7F010001 + address)}, {}};
        bind(m_fd, reinterpret_cast<sockaddr*>(&own), sizeof own);
        sockaddr_in server{AF_INET,
                           htons(static_cast<uint16_t>(options.port)),
                           {inet_addr(options.host.c_str())},
                           {}};
        if (connect(m_fd, reinterpret_cast<sockaddr*>(&server), sizeof server) != 0)
            Give("connect");
        Say(std::string(kGreeting));
        Say(EncodeNamed(kTagComponent, options.component));
        Say(std::string(kTagVersion));
    }
    ~Client() { close(m_fd); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    int Descriptor() const { return m_fd; }
    bool Done() const { return m_state == DONE; }
    double Bytes() const { return m_bytes; }
    double Seconds() const { return m_ended - m_started; }
    int OutOfTurn() const { return m_place < 0 ? 0 : std::abs(m_turn - m_place); }
    bool IsWaiting() const { return m_state == WAITING; }
    int TimesTold() const { return m_told; }
    void ForgetTimesTold() { m_told = 0; }

    void StartDownload() {
        if (m_state != HOLDING) return;
        Say(std::string(kTagDownload));
        m_state = DOWNLOADING;
    }

    void OnReadable() {
        static uint8_t buffer[kReadSize];
        const ssize_t got = recv(m_fd, buffer, sizeof buffer, MSG_DONTWAIT);
        if (got <= 0) Give("the server hung up");
        if (m_state == DOWNLOADING) m_bytes += static_cast<double>(got);
        const uint8_t* at = buffer;
        const uint8_t* const end = buffer + got;
        while (at < end) {
            if (m_header < kFrameHeaderSize) {
                m_headerBytes[m_header++] = *at++;
                if (m_header < kFrameHeaderSize) continue;
                m_left = m_length = FramePayloadLength(m_headerBytes);
                m_start.clear();
            }
            const auto taken = static_cast<int>(std::min<ptrdiff_t>(m_left, end - at));
            if (m_length < 200) m_start.append(reinterpret_cast<const char*>(at), taken);
            at += taken;
            m_left -= taken;
            if (m_left > 0) continue;
            m_header = 0;
            OnPacket();
        }
    }

private:
    enum State { LISTING, ASKING, WAITING, HOLDING, DOWNLOADING, DONE };

    [[noreturn]] static void Give(const char* what) {
        perror(what);
        exit(1);
    }

    void Say(const std::string& payload) {
        const std::string frame = FrameOf(payload);
        if (send(m_fd, frame.data(), frame.size(), MSG_NOSIGNAL) < 0) Give("send");
    }

    void OnPacket() {
        const auto* data = reinterpret_cast<const uint8_t*>(m_start.data());
        if (m_state == LISTING) {
            if (m_packets++ == 1) m_file = DecodeFileListEntry(data, m_start.size())->name;
            if (m_start != std::string(1, '\0')) return;
            Say(EncodeNamed(kTagFull, m_file));
            m_state = ASKING;
        } else if (m_state == ASKING) {
            Say(std::string(kTagQueue));
            m_state = WAITING;
        } else if (m_state == WAITING) {
            const auto status = DecodeQueueStatus(data, m_start.size());
            if (++m_told == 1 && m_place < 0) ++placed;
            if (!status->ready) {
                if (holding) m_place = status->position;  // the line does not move
                return;
            }
            m_turn = m_place < 0 ? 0 : ready++;
            m_state = HOLDING;
            if (!holding) StartDownload();
        } else if (m_state == DOWNLOADING && m_length == 16) {
            if (DecodeDownloadHeader(data, m_start.size())->index != kEndOfDownloads) return;
            m_ended = Now();
            m_state = DONE;
        }
    }

    int m_fd = socket(AF_INET, SOCK_STREAM, 0);
    State m_state = LISTING;
    int m_packets = 0;
    std::string m_file;
    uint8_t m_headerBytes[kFrameHeaderSize] = {};
    int m_header = 0, m_length = 0, m_left = 0;
    std::string m_start;  // of a short packet
    int m_told = 0, m_place = -1, m_turn = 0;
    double m_bytes = 0, m_started = Now(), m_ended = 0;
};

// Of the server, which is not on this machine unless its process is known.
double ProcessorSeconds() {
    std::ifstream file("/proc/" + std::to_string(options.server) + "/stat");
    std::string word;
    double ticks = 0;
    for (int field = 1; field <= 15 && file >> word; ++field)
        if (field >= 14) ticks += std::stod(word);
    return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// One look at the clients; true when the download may begin.
bool Waited(std::list<Client>* clients) {
    static double since = 0, processor = 0;
    if (placed < options.clients) return false;
    if (since == 0) {
        for (Client& client : *clients) client.ForgetTimesTold();
        since = Now();
        processor = ProcessorSeconds();
    }
    if (Now() < since + options.wait) return false;
    int waiting = 0, least = INT32_MAX, most = 0;
    for (const Client& client : *clients) {
        if (!client.IsWaiting()) continue;
        ++waiting;
        least = std::min(least, client.TimesTold());
        most = std::max(most, client.TimesTold());
    }
    printf("%d waited; in %d s each was told its place %d to %d times\n", waiting, options.wait,
           waiting > 0 ? least : 0, most);
    if (options.server > 0) {
        printf("the server took %.0f %% of a processor meanwhile\n",
               (ProcessorSeconds() - processor) / (Now() - since) * 100);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(kHelp);
    app.add_option("COMPONENT", options.component, "What the clients ask for")->required();
    app.add_option("CLIENTS", options.clients, "How many")->required();
    app.add_option("AT_A_TIME", options.atATime, "How many of them at once; all with --wait");
    app.add_option("--host", options.host, "The server's address")->capture_default_str();
    app.add_option("--port", options.port, "The server's port")->capture_default_str();
    app.add_option("--wait", options.wait, "Let all wait for so many seconds, at most 50");
    app.add_option("--server", options.server,
                   "The server's process, to print how much of a processor it takes for the wait");
    CLI11_PARSE(app, argc, argv);
    if (options.atATime == 0 || options.wait > 0) options.atATime = options.clients;
    holding = options.wait > 0;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);

    const int poll = epoll_create1(0);
    int started = 0, running = 0, outOfTurn = 0;
    std::list<Client> clients;
    const double began = Now();
    double bytes = 0, best = 0, fastest = INFINITY, slowest = 0;
    while (running > 0 || started < options.clients) {
        for (int i = 0; i < 64 && running < options.atATime && started < options.clients; ++i) {
            clients.emplace_back(started++);
            epoll_event event{EPOLLIN, {&clients.back()}};
            epoll_ctl(poll, EPOLL_CTL_ADD, clients.back().Descriptor(), &event);
            ++running;
        }
        if (holding && Waited(&clients)) {
            holding = false;
            for (Client& client : clients) client.StartDownload();
        }
        epoll_event events[64];
        const bool starting = running < options.atATime && started < options.clients;
        const int count = epoll_wait(poll, events, 64, starting ? 0 : holding ? 10 : -1);
        for (int i = 0; i < count; ++i) {
            auto* client = static_cast<Client*>(events[i].data.ptr);
            client->OnReadable();
            if (!client->Done()) continue;
            epoll_ctl(poll, EPOLL_CTL_DEL, client->Descriptor(), nullptr);
            --running;
            bytes += client->Bytes();
            best = std::max(best, client->Bytes() / client->Seconds());
            fastest = std::min(fastest, client->Seconds());
            slowest = std::max(slowest, client->Seconds());
            outOfTurn = std::max(outOfTurn, client->OutOfTurn());
        }
        if (options.atATime == 1 && running == 0) clients.clear();
    }
    printf("%.0f MB/s in all, %.0f MB/s the best, %.3f s the fastest, %.3f s the slowest\n",
           bytes / (Now() - began) / 1e6, best / 1e6, fastest, slowest);
    if (options.wait > 0) printf("served at most %d places out of turn\n", outOfTurn);
    return 0;
}
