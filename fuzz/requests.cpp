// The bytes that a client sends to the update server.
//
// Input: the stream of the connection.

#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

#include "serve/update_server.h"
#include "store/publisher.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"

namespace {

class NoObserver : public PublishObserver {
public:
    void Warn(const std::string&) override {}
    void Progress(const char*, size_t, size_t, const std::string&) override {}
};

// A store of two releases with a patch between them, and its server.
struct Service {
    Service() {
        WriteFile("linux64/f", SeededBytes(9000, 1));
        WriteFile("common/g", "some text");
        Publish("1.0");
        WriteFile("linux64/f", SeededBytes(9000, 1) + "more");
        Publish("1.1");
        std::string error;
        store = Store::Open("store", &error);
        ServerOptions options;
        options.address = "127.0.0.1";
        options.port = 0;  // any free one: clients are handed to it
        server = UpdateServer::Open(store.get(), options, &error);
    }

    static void Publish(const std::string& version) {
        NoObserver observer;
        std::vector<std::string> problems;
        std::string error;
        Publisher publisher({"store", version, {{"linux64", "linux64"}, {"common", "common"}}, 3},
                            &observer);
        if (!publisher.Prepare(&problems) || !publisher.Commit(&error)) abort();
    }

    RecordingLog log;
    ScratchDir scratch;
    std::unique_ptr<Store> store;
    std::unique_ptr<UpdateServer> server;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Service service;
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) abort();
    evutil_make_socket_nonblocking(ends[0]);
    evutil_make_socket_nonblocking(ends[1]);
    service.server->Accept(ends[0], {});
    const auto serve = [] { event_base_loop(service.server->Base(), EVLOOP_NONBLOCK); };
    for (size_t at = 0; at < size;) {
        const ssize_t sent = send(ends[1], data + at, size - at, MSG_NOSIGNAL);
        if (sent > 0) at += static_cast<size_t>(sent);
        serve();
        char heard[65536];
        while (recv(ends[1], heard, sizeof heard, 0) > 0) serve();
        if (sent <= 0) break;
    }
    close(ends[1]);
    for (int i = 0; i < 3; ++i) serve();  // it hears of the end, and lets go
    return 0;
}
