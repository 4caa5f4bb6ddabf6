// Answers HTTP requests for the server's metrics, and for a page that shows them.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <string>

#include "serve/event_tools.h"

// Answers one request of each connection. Keeps 16 connections; a new one replaces the oldest.
// (libevent's own HTTP server takes any number, and so all descriptors.)
class HttpMonitor {
public:
    // `metrics` makes the text for /metrics. Null, with the reason in `error`, when `address`, an
    // ADDRESS:PORT, cannot be listened on.
    static std::unique_ptr<HttpMonitor> Open(event_base* base, const std::string& address,
                                             std::function<std::string()> metrics,
                                             std::string* error);

    // Goes on accepting after descriptors ran out.
    void Resume() { evconnlistener_enable(m_listener.get()); }

private:
    HttpMonitor() = default;
    void Accept(evutil_socket_t fd);
    void OnReadable(bufferevent* connection);
    void Close(bufferevent* connection);

    std::function<std::string()> m_metrics;
    Owned<evconnlistener> m_listener;
    std::list<Owned<bufferevent>> m_connections;  // oldest first
};
