// The update server: any number of clients, served from a store.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include "serve/client_session.h"
#include "serve/http_monitor.h"
#include "serve/session_context.h"

// Owns its clients' sessions. The store must outlive it. Raises the process's limit of descriptors,
// and changes what signals do.
class UpdateServer {
public:
    // Null, with the reason in `error`, when it cannot listen or has no descriptors for its slots.
    static std::unique_ptr<UpdateServer> Open(Store* store, const ServerOptions& options,
                                              std::string* error);
    ~UpdateServer();

    // Serves until the first signal, then until the downloads have ended, their time is up or a
    // second signal comes.
    void Run();

    // Takes over a descriptor, which is non-blocking.
    void Accept(evutil_socket_t fd, const sockaddr_in& peer);

    event_base* Base() const { return m_context.base.get(); }

private:
    UpdateServer(Store* store, const ServerOptions& options);

    void OnTick();
    void OnSignal();
    void EndAll();

    SessionContext m_context;
    std::unique_ptr<HttpMonitor> m_monitor;  // null without --metrics
    Owned<evconnlistener> m_listener;        // null while the server stops
    Owned<event> m_tick;
    unsigned m_ticks = 0;
    std::unordered_map<evutil_socket_t, ClientSession> m_sessions;
};
