#include "serve/update_server.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <csignal>
#include <utility>

#include "lib/failure.h"
#include "log/gamelog.h"

namespace {

constexpr Milliseconds kSecond{1000};
constexpr uint64_t kReservedDescriptors = 64;  // standard streams, store, listeners, metrics

// How many clients there can be while each slot has a file open.
uint64_t SessionLimit(int slots) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    const uint64_t reserved = kReservedDescriptors + static_cast<uint64_t>(slots);
    return limit.rlim_cur - std::min<uint64_t>(limit.rlim_cur, reserved);
}

// For a listener; accepted connections inherit them. Replies are sent at once, and keepalive finds
// peers that are gone.
void SetSocketOptions(int fd, Milliseconds ackLimit) {
    const auto set = [fd](int level, int option, int value) {
        setsockopt(fd, level, option, &value, sizeof value);
    };
    const auto limit = static_cast<int>(ackLimit.count());
    set(IPPROTO_TCP, TCP_NODELAY, 1);
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, std::max(limit / 2000, 1));  // in seconds, as the next
    set(IPPROTO_TCP, TCP_KEEPINTVL, std::max(limit / 6000, 1));
    set(IPPROTO_TCP, TCP_USER_TIMEOUT, limit);
}

}  // namespace

std::unique_ptr<UpdateServer> UpdateServer::Open(Store* store, const ServerOptions& options,
                                                 std::string* error) {
    std::unique_ptr<UpdateServer> server(new UpdateServer(store, options));
    SessionContext* const context = &server->m_context;
    if (context->counts.sessionLimit == 0) {
        return Fail(error, "the limit of open files leaves no room for clients beside " +
                               std::to_string(options.slots) + " slots");
    }
    sockaddr_in address{AF_INET, htons(static_cast<uint16_t>(options.port)), {}, {}};
    inet_pton(AF_INET, options.address.c_str(), &address.sin_addr);
    const auto accept = [](evconnlistener*, evutil_socket_t fd, sockaddr* peer, int, void* self) {
        static_cast<UpdateServer*>(self)->Accept(fd, *reinterpret_cast<sockaddr_in*>(peer));
    };
    server->m_listener = Listen(server->Base(), address, accept, server.get(), error);
    if (!server->m_listener) return nullptr;
    SetSocketOptions(evconnlistener_get_fd(server->m_listener.get()), options.ackLimit);
    if (options.metrics.empty()) return server;
    const auto metrics = [context] {
        context->RefreshStore();
        return FormatMetrics(context->counts, *context->store);
    };
    server->m_monitor = HttpMonitor::Open(server->Base(), options.metrics, metrics, error);
    return server->m_monitor ? std::move(server) : nullptr;
}

UpdateServer::UpdateServer(Store* store, const ServerOptions& options)
    : m_context(store, options),
      m_tick(event_new(
          Base(), -1, EV_PERSIST,
          [](evutil_socket_t, short, void* self) { static_cast<UpdateServer*>(self)->OnTick(); },
          this)) {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGHUP, SIG_IGN);
    m_context.counts.sessionLimit = SessionLimit(options.slots);
    m_context.counts.slots = static_cast<uint64_t>(options.slots);
    m_context.destroy = [this](ClientSession* session) {
        m_sessions.erase(session->Descriptor());
        if (m_context.queue.IsClosed() && m_sessions.empty()) event_base_loopbreak(Base());
    };
    Arm(m_tick.get(), kSecond / DownloadQueue::kPartsInRound);
}

UpdateServer::~UpdateServer() { EndAll(); }

void UpdateServer::EndAll() {
    m_context.queue.Close();
    while (!m_sessions.empty()) m_sessions.begin()->second.End(LET_GO);
    m_context.notices.Tell();
}

void UpdateServer::Accept(evutil_socket_t fd, const sockaddr_in& peer) {
    const size_t clients = m_sessions.size();
    const bool full = clients >= m_context.counts.sessionLimit;
    const int share = m_context.options.perAddress;
    const auto& proxies = m_context.proxies;
    const bool proxied =
        std::ranges::any_of(proxies, [&](const AddressRange& range) { return range.Holds(peer); });
    if (!full && (proxied || m_context.addresses.Add(peer, share))) {
        m_sessions.try_emplace(fd, &m_context, fd, peer, proxied);
        return;
    }
    evutil_closesocket(fd);
    ++m_context.counts.ended[full ? REFUSED : OVER_SHARE];
    m_context.notices.Add(AddressText(peer) + " refused: " +
                          (full
                               ? std::to_string(clients) + " clients are served, and no more can be"
                               : "its address has its share of " + std::to_string(share)));
}

void UpdateServer::OnTick() {
    DownloadQueue& queue = m_context.queue;
    if (m_ticks++ % DownloadQueue::kPartsInRound == 0) {
        if (m_listener) evconnlistener_enable(m_listener.get());
        if (m_monitor) m_monitor->Resume();
        m_context.notices.Tell();
        queue.StartRound();
    }
    queue.TellPlaces();
}

void UpdateServer::Run() {
    const auto onSignal = [](evutil_socket_t, short, void* self) {
        static_cast<UpdateServer*>(self)->OnSignal();
    };
    const Owned<event> term(evsignal_new(Base(), SIGTERM, onSignal, this));
    const Owned<event> interrupt(evsignal_new(Base(), SIGINT, onSignal, this));
    evsignal_add(term.get(), nullptr);
    evsignal_add(interrupt.get(), nullptr);
    gamelog->Printf("serving %zu releases of %s on %s:%d\n", m_context.store->Releases().size(),
                    m_context.store->Directory().c_str(), m_context.options.address.c_str(),
                    m_context.options.port);
    m_context.RefreshStore();
    event_base_dispatch(Base());
    EndAll();
    gamelog->Printf("stopped\n");
}

void UpdateServer::OnSignal() {
    if (m_context.queue.IsClosed() || m_sessions.empty()) {
        event_base_loopbreak(Base());
        return;
    }
    m_context.queue.Close();
    m_listener.reset();
    const int seconds = m_context.options.drainSeconds;
    gamelog->Printf("stopping; %zu downloads go on for at most %d s\n",
                    m_context.queue.Downloading(), seconds);
    const timeval time{seconds, 0};
    event_base_loopexit(Base(), &time);
    for (auto entry = m_sessions.begin(); entry != m_sessions.end();) {
        ClientSession& session = (entry++)->second;
        if (!session.HoldsSlot()) session.End(LET_GO);
    }
}
