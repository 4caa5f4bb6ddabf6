// Many clients of an update server, which throw away what they download:
//
//   bench-crowd COMPONENT CLIENTS AT_A_TIME
//
// Each asks the server at 127.0.0.3 for the first file of the component. Prints the rate of all
// together, the best rate of one, and how long the fastest and the slowest client took, from its
// connection to the end of its download, the wait in the server's queue included.

#include <arpa/inet.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/relay.h"
#include "update/messages.h"

namespace {

constexpr size_t kReadSize = size_t{256} * 1024;

double Now() {  // seconds
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count();
}

// One conversation, from the greeting to the end of the download stream.
class Client {
public:
    explicit Client(const std::string& component) : m_fd(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in server{};
        server.sin_family = AF_INET;
        server.sin_port = htons(kUpdatePort);
        server.sin_addr.s_addr = inet_addr("127.0.0.3");
        if (connect(m_fd, reinterpret_cast<sockaddr*>(&server), sizeof server) != 0)
            Give("connect");
        Say(std::string(kGreeting));
        Say(EncodeNamed(kTagComponent, component));
        Say(std::string(kTagVersion));
    }
    ~Client() { close(m_fd); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    int Descriptor() const { return m_fd; }
    bool Done() const { return m_state == DONE; }
    uint64_t Bytes() const { return m_bytes; }
    double Seconds() const { return m_ended - m_started; }

    void OnReadable() {
        static uint8_t buffer[kReadSize];
        const ssize_t got = recv(m_fd, buffer, sizeof buffer, MSG_DONTWAIT);
        if (got <= 0) Give("the server hung up");
        if (m_state == DOWNLOADING) m_bytes += static_cast<uint64_t>(got);
        const uint8_t* at = buffer;
        const uint8_t* const end = buffer + got;
        while (at < end) {
            if (m_header < kFrameHeaderSize) {
                m_headerBytes[m_header++] = *at++;
                if (m_header < kFrameHeaderSize) continue;
                m_left = FramePayloadLength(m_headerBytes);
                m_length = m_left;
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
    enum State { LISTING, ASKING, WAITING, DOWNLOADING, DONE };

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
        switch (m_state) {
            case LISTING:
                if (m_packets++ == 1) m_file = DecodeFileListEntry(data, m_start.size())->name;
                if (m_start != std::string(1, '\0')) return;
                Say(EncodeNamed(kTagFull, m_file));
                m_state = ASKING;
                return;
            case ASKING:
                Say(std::string(kTagQueue));
                m_state = WAITING;
                return;
            case WAITING:
                if (!DecodeQueueStatus(data, m_start.size())->ready) return;
                Say(std::string(kTagDownload));
                m_state = DOWNLOADING;
                return;
            case DOWNLOADING: {
                const auto header = DecodeDownloadHeader(data, m_start.size());
                if (m_length != 16 || header->index != kEndOfDownloads) return;
                m_ended = Now();
                m_state = DONE;
                return;
            }
            case DONE: return;
        }
    }

    int m_fd;
    State m_state = LISTING;
    int m_packets = 0;
    std::string m_file;
    uint8_t m_headerBytes[kFrameHeaderSize] = {};
    int m_header = 0;
    int m_length = 0;
    int m_left = 0;
    std::string m_start;  // of a short packet
    uint64_t m_bytes = 0;
    double m_started = Now();
    double m_ended = 0;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    int toStart = atoi(argv[2]);
    const int atATime = atoi(argv[3]);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);

    const int poll = epoll_create1(0);
    int running = 0;
    std::vector<std::unique_ptr<Client>> clients;
    const auto start = [&] {
        clients.push_back(std::make_unique<Client>(argv[1]));
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.ptr = clients.back().get();
        epoll_ctl(poll, EPOLL_CTL_ADD, clients.back()->Descriptor(), &event);
        --toStart;
        ++running;
    };
    const double began = Now();
    double bytes = 0, best = 0, fastest = INFINITY, slowest = 0;
    while (running > 0 || toStart > 0) {
        while (running < atATime && toStart > 0) start();
        epoll_event events[64];
        const int ready = epoll_wait(poll, events, 64, -1);
        for (int i = 0; i < ready; ++i) {
            auto* client = static_cast<Client*>(events[i].data.ptr);
            client->OnReadable();
            if (!client->Done()) continue;
            epoll_ctl(poll, EPOLL_CTL_DEL, client->Descriptor(), nullptr);
            --running;
            const auto clientBytes = static_cast<double>(client->Bytes());
            bytes += clientBytes;
            best = std::max(best, clientBytes / client->Seconds());
            fastest = std::min(fastest, client->Seconds());
            slowest = std::max(slowest, client->Seconds());
        }
        if (atATime == 1 && running == 0) clients.clear();
    }
    printf("%.0f MB/s in all, %.0f MB/s the best, %.3f s the fastest, %.3f s the slowest\n",
           bytes / (Now() - began) / 1e6, best / 1e6, fastest, slowest);
    return 0;
}
