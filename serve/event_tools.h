// What the server needs of libevent besides its own functions: owners, the clock, frames.
#ifndef HALCYRIX_SERVE_EVENT_TOOLS_H
#define HALCYRIX_SERVE_EVENT_TOOLS_H

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/listener.h>

#include <chrono>
#include <memory>
#include <string_view>

#include "net/frame.h"

struct EventFree {
    void operator()(event_base* base) const { event_base_free(base); }
    void operator()(event* one) const { event_free(one); }
    void operator()(evconnlistener* listener) const { evconnlistener_free(listener); }
    void operator()(evhttp* http) const { evhttp_free(http); }
    void operator()(ev_token_bucket_cfg* rate) const { ev_token_bucket_cfg_free(rate); }
    void operator()(bufferevent_rate_limit_group* group) const {
        bufferevent_rate_limit_group_free(group);
    }
    void operator()(bufferevent* connection) const {
        bufferevent_remove_from_rate_limit_group(connection);
        bufferevent_free(connection);
    }
};
// The base must outlive what was made with it.
template <typename T>
using Owned = std::unique_ptr<T, EventFree>;

// Goes on steadily, whoever sets the time of day. Read anew by each call.
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

inline void Arm(event* timer, Milliseconds delay) {
    const timeval time{delay.count() / 1000, delay.count() % 1000 * 1000};
    event_add(timer, &time);
}

inline void AddPacket(evbuffer* output, std::string_view payload) {
    uint8_t header[kFrameHeaderSize];
    PutFrameHeader(header, static_cast<int>(payload.size()));
    evbuffer_add(output, header, sizeof header);
    evbuffer_add(output, payload.data(), payload.size());
}

#endif
