// Additions to libevent: owners, the clock, listening, frames.
#pragma once

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/listener.h>
#include <netinet/in.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "lib/failure.h"
#include "log/gamelog.h"
#include "net/frame.h"
#include "serve/addresses.h"

struct EventFree {
    void operator()(event_base* base) const { event_base_free(base); }
    void operator()(event* one) const { event_free(one); }
    void operator()(evconnlistener* listener) const { evconnlistener_free(listener); }
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

// Unaffected by changes of the time of day. Each call reads it anew.
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

inline void Arm(event* timer, Milliseconds delay) {
    const timeval time{delay.count() / 1000, delay.count() % 1000 * 1000};
    event_add(timer, &time);
}

// Listens on the address. Null, with the reason in `error`, when that cannot be done. Where a
// connection cannot be accepted, for want of descriptors, the listener logs that and disables
// itself; somebody has to enable it again.
inline Owned<evconnlistener> Listen(event_base* base, const sockaddr_in& address,
                                    evconnlistener_cb callback, void* argument,
                                    std::string* error) {
    Owned<evconnlistener> listener(evconnlistener_new_bind(
        base, callback, argument, LEV_OPT_REUSEABLE | LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC,
        SOMAXCONN, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    if (!listener) return Fail(error, SystemError("cannot listen on " + AddressText(address)));
    evconnlistener_set_error_cb(listener.get(), [](evconnlistener* failed, void*) {
        gamelog->Printf("cannot accept a connection: %s\n", strerror(EVUTIL_SOCKET_ERROR()));
        evconnlistener_disable(failed);
    });
    return listener;
}

// Builds a packet's frame in `frame`, which has room for kMaxFrame bytes; returns its size.
inline size_t PutPacket(char* frame, std::string_view payload) {
    PutFrameHeader(reinterpret_cast<uint8_t*>(frame), static_cast<int>(payload.size()));
    return kFrameHeaderSize + payload.copy(frame + kFrameHeaderSize, payload.size());
}

inline void AddPacket(evbuffer* output, std::string_view payload) {
    char frame[kMaxFrame];
    evbuffer_add(output, frame, PutPacket(frame, payload));
}
