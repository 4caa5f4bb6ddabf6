#include <arpa/inet.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <optional>

#include "log/gamelog.h"
#include "release/commands.h"
#include "serve/status_file.h"
#include "serve/update_server.h"

namespace {

struct ServeArguments {
    std::string store;
    std::string address = "0.0.0.0";
    ServerOptions server;
    std::string statusFile;
};

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

ExitStatus Serve(const ServeArguments& arguments) {
    GameLog log;
    gamelog = &log;
    signal(SIGPIPE, SIG_IGN);

    std::string error;
    const std::unique_ptr<Store> store = Store::Open(arguments.store, &error);
    if (!store) return Problem(error);
    EventLoop loop;
    const StopSignals signals(&loop);
    UpdateServer server(&loop, store.get(), arguments.server);
    if (!server.IsOpen()) return EXIT_PROBLEM;
    log.Printf("serving %zu releases of %s on %s:%d\n", store->Releases().size(),
               arguments.store.c_str(), arguments.address.c_str(), arguments.server.port);
    std::optional<StatusFile> status;
    if (!arguments.statusFile.empty()) status.emplace(&loop, &server, arguments.statusFile);
    loop.Run();
    log.Printf("stopping\n");
    return EXIT_DONE;
}

std::string CheckAddress(const std::string& text) {
    in_addr address;
    return inet_pton(AF_INET, text.c_str(), &address) == 1 ? "" : text + " is no IPv4 address";
}

}  // namespace

void AddServeCommand(CLI::App* app, ExitStatus* status) {
    auto arguments = std::make_shared<ServeArguments>();
    ServerOptions& server = arguments->server;
    CLI::App* command = AddCommand(app, "serve", "Serve a store's releases to updaters");
    command->add_option("STORE", arguments->store, "The store")->required();
    command->add_option("--listen", arguments->address, "Local IPv4 address to listen on")
        ->check(CheckAddress)
        ->capture_default_str();
    command->add_option("--port", server.port, "Port to listen on")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    command->add_option("--slots", server.slots, "How many clients download at a time")
        ->check(CLI::Range(1, 900))
        ->capture_default_str();
    command->add_option("--motd", server.motdFile,
                        "Text file with the message of the day, read anew for each client; at "
                        "most 64 KiB of it are shown");
    command->add_option("--status", arguments->statusFile,
                        "File to keep the server's counts in, rewritten every few seconds");
    command->callback([arguments, status] {
        inet_pton(AF_INET, arguments->address.c_str(), &arguments->server.address);
        *status = Serve(*arguments);
    });
}
