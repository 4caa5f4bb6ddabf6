#include "serve/http_monitor.h"

#include <string_view>
#include <utility>

#include "page.h"
#include "serve/addresses.h"

namespace {

constexpr size_t kMaxConnections = 16;
constexpr size_t kMaxRequest = 16 * 1024;
constexpr timeval kTimeout{10, 0};

}  // namespace

std::unique_ptr<HttpMonitor> HttpMonitor::Open(event_base* base, const std::string& address,
                                               std::function<std::string()> metrics,
                                               std::string* error) {
    std::unique_ptr<HttpMonitor> monitor(new HttpMonitor);
    monitor->m_metrics = std::move(metrics);
    monitor->m_listener = Listen(
        base, ParseAddress(address).value_or(sockaddr_in{}),
        [](evconnlistener*, evutil_socket_t fd, sockaddr*, int, void* self) {
            static_cast<HttpMonitor*>(self)->Accept(fd);
        },
        monitor.get(), error);
    return monitor->m_listener ? std::move(monitor) : nullptr;
}

void HttpMonitor::Accept(evutil_socket_t fd) {
    if (m_connections.size() == kMaxConnections) m_connections.pop_front();
    event_base* const base = evconnlistener_get_base(m_listener.get());
    bufferevent* const connection =
        m_connections.emplace_back(bufferevent_socket_new(base, fd, BEV_OPT_CLOSE_ON_FREE)).get();
    bufferevent_setcb(
        connection,
        [](bufferevent* of, void* self) { static_cast<HttpMonitor*>(self)->OnReadable(of); },
        [](bufferevent* of, void* self) { static_cast<HttpMonitor*>(self)->Close(of); },
        [](bufferevent* of, short, void* self) { static_cast<HttpMonitor*>(self)->Close(of); },
        this);
    bufferevent_set_timeouts(connection, &kTimeout, &kTimeout);
    bufferevent_setwatermark(connection, EV_READ, 0, kMaxRequest);
    bufferevent_enable(connection, EV_READ);
}

void HttpMonitor::OnReadable(bufferevent* connection) {
    evbuffer* const input = bufferevent_get_input(connection);
    const std::string_view request(reinterpret_cast<char*>(evbuffer_pullup(input, -1)),
                                   evbuffer_get_length(input));
    if (request.find("\r\n\r\n") == std::string_view::npos) {
        if (request.size() >= kMaxRequest) Close(connection);
        return;
    }
    const bool page = request.starts_with("GET / "), text = request.starts_with("GET /metrics ");
    const std::string content = page ? kPage : text ? m_metrics() : "";
    bufferevent_disable(connection, EV_READ);
    evbuffer_add_printf(bufferevent_get_output(connection),
                        "HTTP/1.1 %s\r\nContent-Type: %s\r\nContent-Length: %zu\r\n"
                        "Content-Security-Policy: %s\r\nConnection: close\r\n\r\n%s",
                        page || text ? "200 OK" : "404 Not Found",
                        page ? "text/html; charset=utf-8" : "text/plain; version=0.0.4",
                        content.size(), kPagePolicy, content.c_str());
}

void HttpMonitor::Close(bufferevent* connection) {
    m_connections.remove_if([connection](const auto& one) { return one.get() == connection; });
}
