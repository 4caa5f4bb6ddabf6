// The update server: any number of clients, served from a store.
#ifndef HALCYRIX_SERVE_UPDATE_SERVER_H
#define HALCYRIX_SERVE_UPDATE_SERVER_H

#include <list>
#include <memory>
#include <set>
#include <string>

#include "net/event_loop.h"
#include "net/tcp_listen.h"
#include "serve/client_session.h"
#include "serve/download_queue.h"
#include "store/store.h"

struct ServerOptions {
    in_addr_t address = INADDR_ANY;  // in network byte order
    int port = kUpdatePort;
    int slots = 32;        // downloads at a time
    std::string motdFile;  // read anew for each client; empty for no message of the day
};

// The state of a server, and what it has done since it started.
struct ServerStatus {
    size_t releases = 0;
    size_t sessions = 0;  // of this moment, those that download or wait included
    size_t downloading = 0;
    size_t waiting = 0;
    uint64_t bytesSent = 0;
    uint64_t completed = 0;  // sessions that ended as they should
    uint64_t dropped = 0;    // sessions that did not
    uint64_t refused = 0;    // clients that found the server full
    uint64_t errors = 0;     // reads of the server's own files that failed
};

// Owns its clients' sessions. The dispatcher and the store must outlive it. It registers itself on
// construction and is closed (IsOpen() 0) when it could not bind its port, which is logged.
class UpdateServer : public RXTCPListen, private Timer_Event, private Poll_Event {
public:
    UpdateServer(EventLoop* loop, Store* store, const ServerOptions& options);
    ~UpdateServer() override;

    void OnAccept(int32_t fd, const sockaddr_in& addr) override;

    ServerStatus Status() const;

    // For the sessions.

    // The newest release that holds all components, published ones of this moment included.
    std::shared_ptr<const Release> LatestRelease(const std::list<std::string>& components);
    std::shared_ptr<const Release> FindRelease(const std::string& version) const;

    // The message of the day, cut at 64 KiB, with its final NUL.
    std::string MotdText();

    void Join(ClientSession* session);
    // The session's downloads have been sent.
    void Finish(ClientSession* session);
    // The session has ended, without a word from the client, as it should, or otherwise.
    enum Ending { UNUSED, COMPLETED, DROPPED };
    void Remove(ClientSession* session, Ending ending);
    // A file of the store, or the message of the day, could not be read.
    void CountError() { ++m_past.errors; }

private:
    void OnTimer(uint64_t now) override;
    void OnPoll() override;
    void AdmitWaiting();

    EventLoop* m_eventLoop;
    Store* m_store;
    std::string m_motdFile;
    DownloadQueue m_queue;
    size_t m_maxSessions;
    ServerStatus m_past;  // what is over; bytes of sessions that have ended
    EventLoop::IO_Entry m_listening{};
    std::list<std::unique_ptr<ClientSession>> m_sessions;
    std::set<ClientSession*> m_ended;  // to be destroyed at the next poll
};

#endif
