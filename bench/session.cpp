// An update session without a window, in the working directory:
//
//   bench-session COMPONENT...
//
// Prints how long the file list, the checks and requests, and the rest took. The server is at
// 127.0.0.3. Ends with status 1 when the session failed.

#include <csignal>
#include <cstdio>
#include <cstring>

#include "log/gamelog.h"
#include "net/event_loop.h"
#include "update/update_client.h"

namespace {

class SilentLog : public GameLog {
public:
    void Print(const char* text) override {
        if (strstr(text, "fail") != nullptr || strstr(text, "abort") != nullptr) {
            fprintf(stderr, "%s", text);
        }
    }
};

// Notes the moments at which the phases of the session begin.
class Phases : public ProgressIndicator {
public:
    explicit Phases(EventLoop* loop) : m_loop(loop) {}

    void SetProgress(int32_t, int32_t) override {}
    void SetStatus(const char* text) override {
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
    signal(SIGPIPE, SIG_IGN);
    SilentLog log;
    gamelog = &log;
    EventLoop loop;
    Phases phases(&loop);
    UpdateClient client(&loop, &phases);
    if (argc < 2 || argc > 3) return 2;
    if (!client.Start(0, argv[1], argc > 2 ? argv[2] : nullptr, nullptr)) return 1;
    loop.Run();
    if (phases.files < 0) return 1;
    const uint64_t negotiated = phases.negotiated != 0 ? phases.negotiated : phases.ended;
    printf("list %.3f negotiation %.3f rest %.3f files %d\n",
           Seconds(phases.requested, phases.listed), Seconds(phases.listed, negotiated),
           Seconds(negotiated, phases.ended), phases.files);
    return 0;
}
