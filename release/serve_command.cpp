#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <optional>

#include "log/gamelog.h"
#include "release/commands.h"
#include "serve/status_file.h"

namespace {

// Turns the signals that end a service into the end of the dispatcher's Run().
class StopSignals : public IO_Event {
public:
    explicit StopSignals(EventLoop* loop) : m_loop(loop) {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTERM);
        sigaddset(&signals, SIGINT);
        sigprocmask(SIG_BLOCK, &signals, nullptr);
        m_fd = signalfd(-1, &signals, SFD_CLOEXEC);
        SetFlags(IO_READ);
        m_entry = m_loop->AddIO(this);
    }

    ~StopSignals() override {
        m_loop->RemoveIO(m_entry);
        SetFlags(0);
        close(m_fd);
    }

    void OnReadable() override { m_loop->Stop(0); }

private:
    EventLoop* m_loop;
    EventLoop::IO_Entry m_entry;
};

}  // namespace

ExitStatus Serve(const ServeRequest& request) {
    GameLog log;
    gamelog = &log;
    signal(SIGPIPE, SIG_IGN);

    std::string error;
    const std::unique_ptr<Store> store = Store::Open(request.store, &error);
    if (!store) return Problem(error);
    for (const std::string& news : store->TakeNews()) log.Printf("%s\n", news.c_str());
    EventLoop loop;
    const StopSignals signals(&loop);
    UpdateServer server(&loop, store.get(), request.server);
    if (!server.IsOpen()) return EXIT_PROBLEM;
    log.Printf("serving %zu releases of %s on %s:%d\n", store->Releases().size(),
               request.store.c_str(), request.address.c_str(), request.server.port);
    std::optional<StatusFile> status;
    if (!request.statusFile.empty()) status.emplace(&loop, &server, request.statusFile);
    loop.Run();
    log.Printf("stopping\n");
    return EXIT_DONE;
}
