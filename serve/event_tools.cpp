#include "serve/event_tools.h"

#include <cerrno>
#include <cstring>

#include "lib/failure.h"
#include "log/gamelog.h"
#include "serve/addresses.h"

Owned<evconnlistener> Listen(event_base* base, const sockaddr_in& address,
                             evconnlistener_cb callback, void* argument, std::string* error) {
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
