#include "serve/http_monitor.h"

#include <utility>

namespace {

constexpr int kMaxConnections = 16;
constexpr int kRequestTimeout = 10;  // seconds
constexpr ev_ssize_t kMaxRequest = 16 * 1024;

void AnswerMetrics(evhttp_request* request, void* text) {
    evkeyvalq* headers = evhttp_request_get_output_headers(request);
    evhttp_add_header(headers, "Content-Type", "text/plain; version=0.0.4");
    const std::string page = (*static_cast<const std::function<std::string()>*>(text))();
    evbuffer_add(evhttp_request_get_output_buffer(request), page.data(), page.size());
    evhttp_send_reply(request, HTTP_OK, "OK", nullptr);
}

}  // namespace

std::unique_ptr<HttpMonitor> HttpMonitor::Open(event_base* base, const std::string& address,
                                               std::function<std::string()> metrics,
                                               std::string* error) {
    const auto parsed = ParseAddress(address);
    Owned<evconnlistener> listener =
        Listen(base, parsed.value_or(sockaddr_in{}), nullptr, nullptr, error);
    if (!listener) return nullptr;
    std::unique_ptr<HttpMonitor> monitor(new HttpMonitor);
    monitor->m_metrics = std::move(metrics);
    monitor->m_listener = listener.get();
    evhttp* const http = evhttp_new(base);
    monitor->m_http.reset(http);
    evhttp_set_timeout(http, kRequestTimeout);
    evhttp_set_max_headers_size(http, kMaxRequest);
    evhttp_set_max_body_size(http, kMaxRequest);
    evhttp_set_allowed_methods(http, EVHTTP_REQ_GET | EVHTTP_REQ_HEAD);
    evhttp_set_cb(http, "/metrics", AnswerMetrics, &monitor->m_metrics);
    evhttp_set_bevcb(http, Connect, monitor.get());
    evhttp_bind_listener(http, listener.release());
    return monitor;
}

void HttpMonitor::Resume() {
    if (*m_connections < kMaxConnections) evconnlistener_enable(m_listener);
}

// libevent does not tell when a connection of its HTTP server ends. A filter that passes everything
// on is told of its own end, which can come after that of the monitor.
bufferevent* HttpMonitor::Connect(event_base* base, void* self) {
    auto* const monitor = static_cast<HttpMonitor*>(self);
    using Count = std::shared_ptr<int>;
    if (++*monitor->m_connections == kMaxConnections) evconnlistener_disable(monitor->m_listener);
    const auto onEnd = [](void* count) {
        const std::unique_ptr<Count> ended(static_cast<Count*>(count));
        --**ended;
    };
    return bufferevent_filter_new(bufferevent_socket_new(base, -1, BEV_OPT_CLOSE_ON_FREE), nullptr,
                                  nullptr, BEV_OPT_CLOSE_ON_FREE, onEnd,
                                  new Count(monitor->m_connections));
}
