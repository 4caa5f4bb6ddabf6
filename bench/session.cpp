// An updater without a window. It runs one session in the working directory and prints the log:
//
//   headless-client COMPONENT [COMPONENT]
//
// Ends with status 1 when the session failed. The file that it is linked with names the servers.

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
        // Without a server a session ends with this status and no result.
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
    // Never destroyed, since a session may still be under way.
    static auto* const client = new UpdateClient(&loop, &outcome);
    if (!client->Start(1, argv[1], argc > 2 ? argv[2] : nullptr, nullptr)) return 1;
    loop.Run();
    return outcome.files < 0 ? 1 : 0;
}
