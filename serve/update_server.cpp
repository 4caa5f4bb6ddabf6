#include "serve/update_server.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "lib/whole_file.h"
#include "log/gamelog.h"
#include "serve/server_log.h"

namespace {

constexpr Milliseconds kTick{50};
constexpr unsigned kTicksInRound = 20;  // of telling those that wait their places: a second
constexpr int kRateTicks = 10;          // in a second
constexpr size_t kMinShare = 1400;      // of the total rate for one write: about a packet
constexpr size_t kMaxMotd = 64 * 1024;
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

// Of writing; reading has no limit.
ev_token_bucket_cfg* WritingRate(uint64_t bytesPerSecond) {
    const auto rate = static_cast<size_t>(
        std::clamp<uint64_t>(bytesPerSecond / kRateTicks, 1, EV_RATE_LIMIT_MAX / 2));
    const timeval tick{0, 1'000'000 / kRateTicks};
    return ev_token_bucket_cfg_new(EV_RATE_LIMIT_MAX, EV_RATE_LIMIT_MAX, rate, 2 * rate, &tick);
}

// What accepted connections have from the listener: replies go out at once, and a peer that is not
// there any more is found out.
void SetSocketOptions(int fd, Milliseconds ackLimit) {
    const int on = 1;
    const auto limit = static_cast<int>(ackLimit.count());
    const int idle = std::max(limit / 2000, 1);  // seconds
    const int interval = std::max(limit / 6000, 1);
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idle, sizeof idle);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPINTVL, &interval, sizeof interval);
    setsockopt(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &limit, sizeof limit);
}

}  // namespace

bool Serve(Store* store, const ServerOptions& options, std::string* error) {
    ServerLog log;
    gamelog = &log;
    const auto server = UpdateServer::Open(store, options, error);
    if (!server) return false;
    server->Run();
    return true;
}

std::unique_ptr<UpdateServer> UpdateServer::Open(Store* store, const ServerOptions& options,
                                                 std::string* error) {
    std::unique_ptr<UpdateServer> server(new UpdateServer(store, options));
    if (server->m_counts.sessionLimit == 0) {
        *error = "the limit of open files leaves no room for clients beside " +
                 std::to_string(options.slots) + " slots";
        return nullptr;
    }
    if (!server->Listen(error)) return nullptr;
    if (!options.metrics.empty()) {
        server->m_metrics =
            ServeMetrics(server->Base(), options.metrics, &server->m_metricsText, error);
        if (!server->m_metrics) return nullptr;
    }
    return server;
}

UpdateServer::UpdateServer(Store* store, const ServerOptions& options)
    : m_store(store),
      m_options(options),
      m_metricsText([this] {
          RefreshStore();
          return FormatMetrics(m_counts, *m_store);
      }),
      m_base(event_base_new()),
      m_tick(event_new(
          Base(), -1, EV_PERSIST,
          [](evutil_socket_t, short, void* self) { static_cast<UpdateServer*>(self)->OnTick(); },
          this)),
      m_queue(options.slots) {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGHUP, SIG_IGN);
    m_counts.sessionLimit = SessionLimit(options.slots);
    m_counts.slots = static_cast<uint64_t>(options.slots);
    if (options.clientRate > 0) m_clientRate.reset(WritingRate(options.clientRate));
    if (options.totalRate > 0) {
        const Owned<ev_token_bucket_cfg> rate(WritingRate(options.totalRate));
        m_totalRate.reset(bufferevent_rate_limit_group_new(Base(), rate.get()));
        bufferevent_rate_limit_group_set_min_share(m_totalRate.get(), kMinShare);
    }
    Arm(m_tick.get(), kTick);
}

UpdateServer::~UpdateServer() {
    m_stopping = true;
    EndAll();
}

void UpdateServer::EndAll() {
    while (!m_sessions.empty()) m_sessions.begin()->second.End(LET_GO);
    TellNotices();
}

bool UpdateServer::Listen(std::string* error) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(m_options.port));
    inet_pton(AF_INET, m_options.address.c_str(), &address.sin_addr);
    m_listener.reset(evconnlistener_new_bind(
        Base(),
        [](evconnlistener*, evutil_socket_t fd, sockaddr* peer, int, void* self) {
            static_cast<UpdateServer*>(self)->Accept(fd, *reinterpret_cast<sockaddr_in*>(peer));
        },
        this, LEV_OPT_REUSEABLE | LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC, SOMAXCONN,
        reinterpret_cast<const sockaddr*>(&address), sizeof address));
    if (!m_listener) {
        *error = "cannot listen on " + m_options.address + ":" + std::to_string(m_options.port) +
                 ": " + strerror(errno);
        return false;
    }
    SetSocketOptions(evconnlistener_get_fd(m_listener.get()), m_options.ackLimit);
    evconnlistener_set_error_cb(m_listener.get(), [](evconnlistener*, void* self) {
        static_cast<UpdateServer*>(self)->OnAcceptFailure();
    });
    return true;
}

// The system has no descriptor or memory to spare; the next tick tries again.
void UpdateServer::OnAcceptFailure() {
    Notice(std::string("cannot accept a client: ") + strerror(EVUTIL_SOCKET_ERROR()));
    evconnlistener_disable(m_listener.get());
}

void UpdateServer::Accept(evutil_socket_t fd, const sockaddr_in& peer) {
    int& ofAddress = m_perAddress[peer.sin_addr.s_addr];
    const bool full = m_sessions.size() >= m_counts.sessionLimit;
    const bool overShare = m_options.perAddress > 0 && ofAddress >= m_options.perAddress;
    if (!full && !overShare) {
        ++ofAddress;
        m_sessions.try_emplace(fd, this, fd, peer);
        return;
    }
    evutil_closesocket(fd);
    if (ofAddress == 0) m_perAddress.erase(peer.sin_addr.s_addr);
    ++m_counts.ended[full ? REFUSED : OVER_SHARE];
    Notice(AddressText(peer) + " refused: " +
           (full ? std::to_string(m_sessions.size()) + " clients are served, and no more can be"
                 : "its address has its share of " + std::to_string(ofAddress)));
}

std::shared_ptr<const Release> UpdateServer::LatestRelease(
    const std::list<std::string>& components) {
    RefreshStore();
    return m_store->Latest(components);
}

void UpdateServer::RefreshStore() {
    m_store->Refresh();
    for (const std::string& news : m_store->TakeNews()) gamelog->Printf("%s\n", news.c_str());
}

void UpdateServer::ReportUnreadable(const Release& release) {
    ++m_counts.readErrors;
    m_store->Doubt(release);
    RefreshStore();
}

std::shared_ptr<const Release> UpdateServer::FindRelease(const std::string& version) const {
    return m_store->Find(version);
}

std::string UpdateServer::MotdText() {
    std::string text;
    std::string error;
    if (!m_options.motdFile.empty() && !ReadWholeFile(m_options.motdFile, &text, &error)) {
        ++m_counts.readErrors;
        gamelog->Printf("%s\n", error.c_str());
    }
    text.erase(std::min({text.find('\0'), text.size(), kMaxMotd}));
    text.push_back('\0');
    return text;
}

DownloadQueue::Ticket UpdateServer::Join(ClientSession* session) {
    const auto ticket = m_queue.Join(session);
    AdmitWaiting();
    if (!session->HoldsSlot())
        session->TellPlace(PlaceStatus(m_queue.Waiting() - 1, m_queue.Rate()));
    return ticket;
}

void UpdateServer::LimitRate(bufferevent* connection) {
    if (m_clientRate) bufferevent_set_rate_limit(connection, m_clientRate.get());
    if (m_totalRate) bufferevent_add_to_rate_limit_group(connection, m_totalRate.get());
}

void UpdateServer::Finish(ClientSession* session, Clock::duration duration) {
    m_queue.CountDuration(std::chrono::duration_cast<Milliseconds>(duration));
    m_queue.Leave(session->QueueTicket());
    AdmitWaiting();
    // The system sends what is left.
    if (m_stopping) session->End(COMPLETED);
}

void UpdateServer::Remove(ClientSession* session, Ending ending) {
    ++m_counts.ended[ending];
    m_queue.Leave(session->QueueTicket());
    const auto ofAddress = m_perAddress.find(session->Peer().sin_addr.s_addr);
    if (--ofAddress->second == 0) m_perAddress.erase(ofAddress);
    m_sessions.erase(session->Descriptor());
    AdmitWaiting();
    if (m_stopping && m_sessions.empty()) event_base_loopbreak(Base());
}

void UpdateServer::AdmitWaiting() {
    if (m_stopping) return;
    while (ClientSession* session = m_queue.Admit()) session->Admit();
}

void UpdateServer::OnTick() {
    if (m_ticks++ % kTicksInRound == 0) {
        if (m_listener) evconnlistener_enable(m_listener.get());
        TellNotices();
        m_queue.StartRound();
    }
    TellPlaces();
}

// A part of the line, so that thousands are told within a second and nobody else waits for it.
void UpdateServer::TellPlaces() {
    const uint16_t rate = m_queue.Rate();
    for (size_t left = m_queue.Waiting() / kTicksInRound + 1; left > 0; --left) {
        size_t place = 0;
        ClientSession* const session = m_queue.NextInRound(&place);
        if (session == nullptr) return;
        session->TellPlace(PlaceStatus(place, rate));
    }
}

// The numbers on the wire end at 65535; whoever stands behind is told that much.
QueueStatus UpdateServer::PlaceStatus(size_t place, uint16_t rate) const {
    const auto length = std::min<size_t>(m_queue.Waiting(), UINT16_MAX);
    return {false, static_cast<uint16_t>(std::min(place, length - 1)),
            static_cast<uint16_t>(length), rate};
}

void UpdateServer::Notice(const std::string& text) {
    if (m_notices++ == 0) m_notice = text;
}

void UpdateServer::TellNotices() {
    if (m_notices == 1) gamelog->Printf("%s\n", m_notice.c_str());
    if (m_notices > 1) {
        gamelog->Printf("%s (and %zu others like this)\n", m_notice.c_str(), m_notices - 1);
    }
    m_notices = 0;
}

void UpdateServer::Run() {
    const auto onSignal = [](evutil_socket_t, short, void* self) {
        static_cast<UpdateServer*>(self)->OnSignal();
    };
    const Owned<event> term(evsignal_new(Base(), SIGTERM, onSignal, this));
    const Owned<event> interrupt(evsignal_new(Base(), SIGINT, onSignal, this));
    evsignal_add(term.get(), nullptr);
    evsignal_add(interrupt.get(), nullptr);
    gamelog->Printf("serving %zu releases of %s on %s:%d\n", m_store->Releases().size(),
                    m_store->Directory().c_str(), m_options.address.c_str(), m_options.port);
    RefreshStore();
    event_base_dispatch(Base());
    EndAll();
    gamelog->Printf("stopped\n");
}

void UpdateServer::OnSignal() {
    if (std::exchange(m_stopping, true) || m_sessions.empty()) {
        event_base_loopbreak(Base());
        return;
    }
    m_listener.reset();
    gamelog->Printf("stopping; %zu downloads go on for at most %d s\n", m_queue.Downloading(),
                    m_options.drainSeconds);
    const timeval time{m_options.drainSeconds, 0};
    event_base_loopexit(Base(), &time);
    for (auto entry = m_sessions.begin(); entry != m_sessions.end();) {
        ClientSession& session = (entry++)->second;
        if (!session.HoldsSlot()) session.End(LET_GO);
    }
}
