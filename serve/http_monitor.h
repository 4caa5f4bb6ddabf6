// Answers HTTP requests for the server's metrics.
#ifndef HALCYRIX_SERVE_HTTP_MONITOR_H
#define HALCYRIX_SERVE_HTTP_MONITOR_H

#include <functional>
#include <memory>
#include <string>

#include "serve/addresses.h"
#include "serve/event_tools.h"

// Takes 16 connections at a time; others wait until one ends.
class HttpMonitor {
public:
    // `metrics` makes the text for /metrics. Null, with the reason in `error`, when `address`, an
    // ADDRESS:PORT, cannot be listened on.
    static std::unique_ptr<HttpMonitor> Open(event_base* base, const std::string& address,
                                             std::function<std::string()> metrics,
                                             std::string* error);

    // Goes on accepting after connections or descriptors ran out. To be called every second.
    void Resume();

private:
    HttpMonitor() = default;
    static bufferevent* Connect(event_base* base, void* self);

    std::function<std::string()> m_metrics;
    std::shared_ptr<int> m_connections = std::make_shared<int>(0);
    evconnlistener* m_listener = nullptr;  // owned by m_http
    Owned<evhttp> m_http;
};

#endif
