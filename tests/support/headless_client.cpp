// An updater without a window: headless-client DIRECTORY brings the game in the directory up to
// date in one session with a server on this machine, and tells the log on standard output. Ends
// with status 0 when the session has succeeded.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string_view>

#include "log/gamelog.h"
#include "update/update_client.h"

namespace {

class Player : public ProgressIndicator {
public:
    explicit Player(EventLoop* loop) : m_loop(loop) {}

    void SetProgress(int32_t, int32_t) override {}
    void SetStatus(const char* text) override {
        // Of a session that ends without a server nothing else is told.
        if (std::string_view(text) == "Connection failed") Finished(-1);
    }
    void Finished(int32_t result) override { m_loop->Stop(result >= 0 ? 0 : 1); }

private:
    EventLoop* m_loop;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || chdir(argv[1]) != 0) {
        fprintf(stderr, "usage: headless-client DIRECTORY\n");
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    GameLog log;
    gamelog = &log;
    EventLoop loop;
    Player player(&loop);
    // Never destroyed: it may be in the middle of a session.
    static auto* const client = new UpdateClient(&loop, &player);
    return client->Start(1, "linux64", "common", nullptr) ? loop.Run() : 1;
}
