// The update server with a client that sends anything, and waits for the answer to each frame.
//
// Input: the bytes of the connection, which are cut into frames.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "net/frame.h"
#include "serve/update_server.h"
#include "store/publisher.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"

namespace {

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
        WorkObserver observer;
        std::vector<std::string> problems;
        std::string error;
        PreparedRelease made;
        const bool prepared =
            PrepareRelease({"store", version, {{"linux64", "linux64"}, {"common", "common"}}, 3},
                           &observer, &made, &problems);
        if (!prepared || !made.Commit(&error)) abort();
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
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) abort();
    service.server->Accept(ends[0], {});
    const auto serve = [&] {
        char heard[65536];
        for (int idle = 0; idle < 3; ++idle) {
            event_base_loop(service.server->Base(), EVLOOP_NONBLOCK);
            while (recv(ends[1], heard, sizeof heard, 0) > 0) idle = 0;
        }
    };
    for (size_t at = 0, length; at < size; at += length) {
        length = size - at;
        if (length >= kFrameHeaderSize) {
            const auto frame =
                static_cast<size_t>(FramePayloadLength(data + at)) + kFrameHeaderSize;
            length = std::min(length, frame);
        }
        if (send(ends[1], data + at, length, MSG_NOSIGNAL) == -1) break;
        serve();
    }
    shutdown(ends[1], SHUT_RDWR);
    serve();  // it hears of the end, and lets go
    close(ends[1]);
    return 0;
}
