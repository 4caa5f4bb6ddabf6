// The update server: any number of clients, served from a store.
#ifndef HALCYRIX_RELEASE_UPDATE_SERVER_H
#define HALCYRIX_RELEASE_UPDATE_SERVER_H

#include <list>
#include <memory>
#include <set>
#include <string>

#include "net/event_loop.h"
#include "net/tcp_listen.h"
#include "release/client_session.h"
#include "release/download_queue.h"
#include "release/store.h"

struct ServerOptions {
    in_addr_t address = INADDR_ANY;  // in network byte order
    int port = kUpdatePort;
    int slots = 32;        // downloads at a time
    std::string motdFile;  // read anew for each client; empty for no message of the day
};

// Owns its clients' sessions. The dispatcher and the store must outlive it. It registers itself on
// construction and is closed (IsOpen() 0) when it could not bind its port, which is logged.
class UpdateServer : public RXTCPListen, private Timer_Event, private Poll_Event {
public:
    UpdateServer(EventLoop* loop, Store* store, const ServerOptions& options);
    ~UpdateServer() override;

    void OnAccept(int32_t fd, const sockaddr_in& addr) override;

    // For the sessions.

    // The newest release that holds all components, published ones of this moment included.
    std::shared_ptr<const Release> LatestRelease(const std::list<std::string>& components);
    std::shared_ptr<const Release> FindRelease(const std::string& version) const;

    // The message of the day, cut at 64 KiB, with its final NUL.
    std::string MotdText() const;

    void Join(ClientSession* session);
    // The session's downloads have been sent.
    void Finish(ClientSession* session);
    // The session has ended.
    void Remove(ClientSession* session);

private:
    void OnTimer(uint64_t now) override;
    void OnPoll() override;
    void AdmitWaiting();

    EventLoop* m_eventLoop;
    Store* m_store;
    std::string m_motdFile;
    DownloadQueue m_queue;
    size_t m_maxSessions;
    EventLoop::IO_Entry m_listening{};
    std::list<std::unique_ptr<ClientSession>> m_sessions;
    std::set<ClientSession*> m_ended;  // to be destroyed at the next poll
};

#endif
