// Many clients of an update server, which throw away what they download; see --help.

#include <arpa/inet.h>
#include <err.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <list>
#include <string>
#include <vector>

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

std::string component, host = "127.0.0.3";
int clients = 0, atATime = 0, port = kUpdatePort, wait = 0, server = 0;
bool holding = false;           // nobody downloads yet
int placed = 0;                 // clients that have a slot or have been told their place
int served = 0, outOfTurn = 0;  // of those that waited, and by how many places at most
double bytes = 0, best = 0, fastest = INFINITY, slowest = 0;

double Now() {  // seconds
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count();
}

// One conversation, from the greeting to the end of the download stream.
struct Client {
    explicit Client(int number) {
        const auto address = static_cast<uint32_t>(number / kClientsOfAddress);
        const sockaddr_in own{AF_INET, 0, {htonl(0x7F010001 + address)}, {}};
        const sockaddr_in to{
            AF_INET, htons(static_cast<uint16_t>(port)), {inet_addr(host.c_str())}, {}};
        bind(fd, reinterpret_cast<const sockaddr*>(&own), sizeof own);
        if (connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) err(1, "connect");
        Say(kGreeting);
        Say(EncodeNamed(kTagComponent, component));
        Say(kTagVersion);
    }
    ~Client() { close(fd); }

    void Say(std::string_view payload) const {
        uint8_t frame[kMaxFrame];
        PutFrameHeader(frame, static_cast<int>(payload.size()));
        payload.copy(reinterpret_cast<char*>(frame) + kFrameHeaderSize, payload.size());
        if (send(fd, frame, kFrameHeaderSize + payload.size(), MSG_NOSIGNAL) < 0) err(1, "send");
    }

    // Keeps what is no complete packet yet.
    void OnReadable() {
        static uint8_t buffer[kReadSize];
        std::copy(rest.begin(), rest.end(), buffer);
        const ssize_t got = recv(fd, buffer + rest.size(), kReadSize - rest.size(), MSG_DONTWAIT);
        if (got <= 0) err(1, "the server hung up");
        if (state == DOWNLOADING) received += static_cast<double>(got);
        const uint8_t* at = buffer;
        const uint8_t* const end = buffer + rest.size() + got;
        while (end - at >= kFrameHeaderSize) {
            length = static_cast<size_t>(FramePayloadLength(at));
            if (static_cast<size_t>(end - at) < kFrameHeaderSize + length) break;
            OnPacket(at + kFrameHeaderSize);
            at += kFrameHeaderSize + length;
        }
        rest.assign(at, end);
    }

    void OnPacket(const uint8_t* data) {
        if (state == LISTING) {
            if (packets++ == 1) file = Decode<FileListEntry>(data, length)->name;
            if (data[0] != '\0') return;
            Say(EncodeNamed(kTagFull, file));
            state = ASKING;
        } else if (state == ASKING) {
            Say(kTagQueue);
            state = WAITING;
        } else if (state == WAITING) {
            const auto status = Decode<QueueStatus>(data, length);
            if (told++ == 0) ++placed;
            if (!status->ready) {
                if (holding) place = status->position;  // the line does not move
                return;
            }
            if (place >= 0) outOfTurn = std::max(outOfTurn, std::abs(served++ - place));
            state = HOLDING;
            if (!holding) Download();
        } else if (state == DOWNLOADING && length == 16) {
            if (Decode<DownloadHeader>(data, length)->index != kEndOfDownloads) return;
            state = DONE;
            const double seconds = Now() - started;
            bytes += received;
            best = std::max(best, received / seconds);
            fastest = std::min(fastest, seconds);
            slowest = std::max(slowest, seconds);
        }
    }

    void Download() {
        Say(kTagDownload);
        state = DOWNLOADING;
    }

    int fd = socket(AF_INET, SOCK_STREAM, 0);
    enum { LISTING, ASKING, WAITING, HOLDING, DOWNLOADING, DONE } state = LISTING;
    int packets = 0, told = 0, place = -1;
    size_t length = 0;  // of the packet at hand
    std::string file;
    std::vector<uint8_t> rest;
    double received = 0, started = Now();
};

// Of the server's process.
double ProcessorSeconds() {
    std::ifstream stat("/proc/" + std::to_string(server) + "/stat");
    std::string word;
    double ticks = 0;
    for (int field = 1; field <= 15 && stat >> word; ++field)
        if (field >= 14) ticks += std::stod(word);
    return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// Begins the downloads when all have waited for long enough.
void EndWait(std::list<Client>* all) {
    static double since = 0, processor = 0;
    if (placed < clients) return;
    if (since == 0) {
        for (Client& client : *all) client.told = 1;
        since = Now();
        processor = ProcessorSeconds();
    }
    if (Now() < since + wait) return;
    int waiting = 0, least = INT32_MAX, most = 0;
    for (Client& client : *all) {
        if (client.state == Client::HOLDING) client.Download();
        if (client.state != Client::WAITING) continue;
        ++waiting;
        least = std::min(least, client.told - 1);
        most = std::max(most, client.told - 1);
    }
    holding = false;
    printf("%d waited; in %d s each was told its place %d to %d times\n", waiting, wait, least,
           most);
    if (server == 0) return;
    printf("the server took %.0f %% of a processor meanwhile\n",
           (ProcessorSeconds() - processor) / (Now() - since) * 100);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(kHelp);
    app.add_option("COMPONENT", component, "What the clients ask for")->required();
    app.add_option("CLIENTS", clients, "How many")->required();
    app.add_option("AT_A_TIME", atATime, "How many of them at once; all with --wait");
    app.add_option("--host", host, "The server's address")->capture_default_str();
    app.add_option("--port", port, "The server's port")->capture_default_str();
    app.add_option("--wait", wait, "Let all wait for so many seconds, at most 50");
    app.add_option("--server", server, "The server's process, to print what time it takes to wait");
    CLI11_PARSE(app, argc, argv);
    holding = wait > 0;
    if (atATime == 0 || holding) atATime = clients;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);

    const int poll = epoll_create1(0);
    int started = 0, running = 0;
    std::list<Client> all;
    const double began = Now();
    while (running > 0 || started < clients) {
        for (int i = 0; i < 64 && running < atATime && started < clients; ++i, ++running) {
            epoll_event event{EPOLLIN, {&all.emplace_back(started++)}};
            epoll_ctl(poll, EPOLL_CTL_ADD, all.back().fd, &event);
        }
        if (holding) EndWait(&all);
        epoll_event events[64];
        const bool starting = running < atATime && started < clients;
        const int count = epoll_wait(poll, events, 64, starting ? 0 : holding ? 10 : -1);
        for (int i = 0; i < count; ++i) {
            auto* client = static_cast<Client*>(events[i].data.ptr);
            client->OnReadable();
            if (client->state != Client::DONE) continue;
            epoll_ctl(poll, EPOLL_CTL_DEL, client->fd, nullptr);
            --running;
        }
        if (atATime == 1 && running == 0) all.clear();
    }
    printf("%.0f MB/s in all, %.0f MB/s the best, %.3f s the fastest, %.3f s the slowest\n",
           bytes / (Now() - began) / 1e6, best / 1e6, fastest, slowest);
    if (wait > 0) printf("served at most %d places out of turn\n", outOfTurn);
    return 0;
}
