#include "serve/update_server.h"

#include <arpa/inet.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "lib/whole_file.h"
#include "log/gamelog.h"

namespace {

constexpr uint64_t kTick = 1000;                 // milliseconds between two queue statuses
constexpr uint64_t kIdleLimit = 10 * 60 * 1000;  // milliseconds
constexpr size_t kMaxMotd = 64 * 1024;
constexpr size_t kReservedDescriptors = 24;  // standard streams, store, listener, signals

// How many clients can be watched while each slot has a file open.
size_t SessionLimit(int slots) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    getrlimit(RLIMIT_NOFILE, &limit);
    const size_t descriptors = std::min<size_t>(limit.rlim_cur, FD_SETSIZE);
    const size_t reserved = kReservedDescriptors + static_cast<size_t>(slots);
    return descriptors > reserved ? descriptors - reserved : 1;
}

}  // namespace

UpdateServer::UpdateServer(EventLoop* loop, Store* store, const ServerOptions& options)
    : RXTCPListen(options.port, options.address),
      Timer_Event(loop),
      Poll_Event(loop),
      m_eventLoop(loop),
      m_store(store),
      m_motdFile(options.motdFile),
      m_queue(options.slots),
      m_maxSessions(SessionLimit(options.slots)) {
    // The listener's own backlog is meant for few peers; here a crowd may arrive at once.
    if (IsOpen()) listen(m_fd, SOMAXCONN);
    m_listening = m_eventLoop->AddIO(this);
    Register();
    Schedule(kTick);
}

UpdateServer::~UpdateServer() {
    for (const auto& session : m_sessions) session->End("the server stops");
    OnPoll();
    Unregister();
    m_eventLoop->RemoveIO(m_listening);
}

void UpdateServer::OnAccept(int32_t fd, const sockaddr_in& addr) {
    auto session = std::make_unique<ClientSession>(this, fd, addr);
    if (m_sessions.size() >= m_maxSessions || fd >= FD_SETSIZE) {
        ++m_past.refused;
        gamelog->Printf("refused a client: %zu are being served, and no more can be\n",
                        m_sessions.size());
        return;
    }
    session->registration = m_eventLoop->AddIO(session.get());
    m_sessions.push_back(std::move(session));
}

std::shared_ptr<const Release> UpdateServer::LatestRelease(
    const std::list<std::string>& components) {
    m_store->Refresh();
    for (const std::string& news : m_store->TakeNews()) {
        CountError();
        gamelog->Printf("%s\n", news.c_str());
    }
    return m_store->Latest(components);
}

std::shared_ptr<const Release> UpdateServer::FindRelease(const std::string& version) const {
    return m_store->Find(version);
}

ServerStatus UpdateServer::Status() const {
    ServerStatus status = m_past;
    status.releases = m_store->Releases().size();
    status.downloading = static_cast<size_t>(m_queue.Downloading());
    status.waiting = m_queue.Waiting().size();
    for (const auto& session : m_sessions) {
        if (m_ended.contains(session.get())) continue;
        ++status.sessions;
        status.bytesSent += session->BytesSent();
    }
    return status;
}

std::string UpdateServer::MotdText() {
    std::string text;
    std::string error;
    if (!m_motdFile.empty() && !ReadWholeFile(m_motdFile, &text, &error)) {
        CountError();
        gamelog->Printf("%s\n", error.c_str());
    }
    text.erase(std::min({text.find('\0'), text.size(), kMaxMotd}));
    text.push_back('\0');
    return text;
}

void UpdateServer::Join(ClientSession* session) {
    m_queue.Join(session);
    AdmitWaiting();
}

void UpdateServer::Finish(ClientSession* session) {
    m_queue.Leave(session, EventLoop::Now(), true);
    AdmitWaiting();
}

void UpdateServer::Remove(ClientSession* session, Ending ending) {
    if (ending == COMPLETED) ++m_past.completed;
    if (ending == DROPPED) ++m_past.dropped;
    m_past.bytesSent += session->BytesSent();
    m_queue.Leave(session, EventLoop::Now(), false);
    m_eventLoop->RemoveIO(session->registration);
    m_ended.insert(session);
    AdmitWaiting();
}

void UpdateServer::AdmitWaiting() {
    while (ClientSession* session = m_queue.Admit(EventLoop::Now())) session->Admit();
}

void UpdateServer::OnTimer(uint64_t now) {
    Schedule(kTick);
    std::vector<ClientSession*> idle;
    for (const auto& session : m_sessions) {
        if (now > session->LastActivity() + kIdleLimit) idle.push_back(session.get());
    }
    for (ClientSession* session : idle) session->End("idle");

    // Telling may end a session, which changes the line.
    const std::list<ClientSession*> waiting = m_queue.Waiting();
    const auto length = static_cast<uint16_t>(std::min<size_t>(waiting.size(), UINT16_MAX));
    uint16_t position = 0;
    for (ClientSession* session : waiting) {
        if (!m_ended.contains(session)) session->TellPlace(position, length, m_queue.Rate());
        if (position < length) ++position;
    }
}

void UpdateServer::OnPoll() {
    if (m_ended.empty()) return;
    m_sessions.remove_if([this](const auto& session) { return m_ended.contains(session.get()); });
    m_ended.clear();
}
