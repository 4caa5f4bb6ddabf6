// An updater without a window, which runs one session in the working directory:
//
//   headless-client COMPONENT [COMPONENT]
//
// Prints the log. Ends with status 1 when the session failed. Which servers it knows is up to the
// file that it is linked with.

#include <csignal>
#include <cstdio>
#include <cstring>

#include "log/gamelog.h"
#include "net/event_loop.h"
#include "update/update_client.h"

namespace {

class Outcome : public ProgressIndicator {
public:
    explicit Outcome(EventLoop* loop) : m_loop(loop) {}

    void SetProgress(int32_t, int32_t) override {}
    void SetStatus(const char* text) override {
        // Of a session that ends without a server nothing else is told.
        if (strcmp(text, "Connection failed") == 0) m_loop->Stop(1);
    }
    void Finished(int32_t result) override {
        files = result;
        m_loop->Stop(0);
    }

    int32_t files = -1;

private:
    EventLoop* m_loop;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        fprintf(stderr, "usage: %s COMPONENT [COMPONENT]\n", argv[0]);
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    GameLog log;
    gamelog = &log;
    EventLoop loop;
    Outcome outcome(&loop);
    // Never destroyed: it may be in the middle of a session.
    static auto* const client = new UpdateClient(&loop, &outcome);
    if (!client->Start(1, argv[1], argc > 2 ? argv[2] : nullptr, nullptr)) return 1;
    loop.Run();
    return outcome.files < 0 ? 1 : 0;
}
