// An update session without a window, in the working directory:
//
//   bench-session COMPONENT [COMPONENT]
//
// Prints the log and, in a last line, how long the file list, the checks and requests, and the rest
// took, in seconds. Ends with status 1 when the session failed. Which servers it knows is up to the
// file that it is linked with.

#include <csignal>
#include <cstdio>
#include <cstring>

#include "log/gamelog.h"
#include "net/event_loop.h"
#include "update/update_client.h"

namespace {

// Notes the moments at which the phases of the session begin.
class Phases : public ProgressIndicator {
public:
    explicit Phases(EventLoop* loop) : m_loop(loop) {}

    void SetProgress(int32_t, int32_t) override {}
    void SetStatus(const char* text) override {
        // Of a session that ends without a server nothing else is told.
        if (strcmp(text, "Connection failed") == 0) m_loop->Stop(1);
        const uint64_t now = EventLoop::Now();
        if (strstr(text, "Requesting") == text) requested = now;
        if (strstr(text, "Negotiating") == text || strstr(text, "Version is") == text) listed = now;
        if (strstr(text, "Downloading") == text) negotiated = now;
    }
    void Finished(int32_t result) override {
        ended = EventLoop::Now();
        files = result;
        m_loop->Stop(0);
    }

    uint64_t requested = 0;
    uint64_t listed = 0;
    uint64_t negotiated = 0;
    uint64_t ended = 0;
    int32_t files = -1;

private:
    EventLoop* m_loop;
};

double Seconds(uint64_t from, uint64_t to) {
    return static_cast<double>(to - from) / 1000;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        fprintf(stderr, "usage: %s COMPONENT [COMPONENT]\n", argv[0]);
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    GameLog log;
    gamelog = &log;
    EventLoop loop;
    Phases phases(&loop);
    // Never destroyed: it may be in the middle of a session.
    static auto* const client = new UpdateClient(&loop, &phases);
    if (!client->Start(1, argv[1], argc > 2 ? argv[2] : nullptr, nullptr)) return 1;
    loop.Run();
    if (phases.files < 0) return 1;
    const uint64_t negotiated = phases.negotiated != 0 ? phases.negotiated : phases.ended;
    printf("list %.3f negotiation %.3f rest %.3f files %d\n",
           Seconds(phases.requested, phases.listed), Seconds(phases.listed, negotiated),
           Seconds(negotiated, phases.ended), phases.files);
    return 0;
}
