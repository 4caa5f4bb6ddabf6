// halcyrix-release: the maker's tool.
#include <arpa/inet.h>

#include <CLI/CLI.hpp>
#include <cstdio>

#include "halcyrix_config.h"
#include "release/commands.h"

namespace {

// Each check returns why the text is refused, and an empty string for a good one.

std::string CheckSource(const std::string& text) {
    return text.find('=') == std::string::npos ? text + " is not COMPONENT=DIR" : "";
}

std::string CheckAddress(const std::string& text) {
    in_addr address;
    return inet_pton(AF_INET, text.c_str(), &address) == 1 ? "" : text + " is no IPv4 address";
}

std::string CheckMetricsAddress(const std::string& text) {
    const size_t colon = text.rfind(':');
    const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
    if (!CLI::Range(1, 65535)(port).empty()) return text + " is not ADDRESS:PORT";
    return CheckAddress(text.substr(0, colon));
}

// What the command line says, and what came of the command.
struct CommandLine {
    PublishRequest request;
    std::vector<std::string> sources;
    bool dryRun = false;
    std::string store, version;
    size_t keep = 0;
    ServerOptions server;
    std::string from, to, patch;
    ExitStatus status = EXIT_DONE;
};

// Adds a command that works on a store.
CLI::App* AddStoreCommand(CLI::App* app, const char* name, const char* description,
                          CommandLine* line) {
    CLI::App* command = app->add_subcommand(name, description);
    command->add_option("STORE", line->store, "The store")->required();
    return command;
}

// Each of these functions adds a command, whose callback runs it.

void AddPublish(CLI::App* app, CommandLine* line) {
    CLI::App* publish = app->add_subcommand("publish", "Add a release to a store");
    publish->add_option("STORE", line->request.store, "The store, made when there is none")
        ->required();
    publish->add_option("VERSION", line->request.version, "The version, a word not used before")
        ->required();
    publish->add_option("SOURCES", line->sources, "Each component and where its files are")
        ->required()
        ->type_name("COMPONENT=DIR")
        ->check(CheckSource);
    publish
        ->add_option("--patches-from", line->request.patchesFrom,
                     "Make patches from the last N releases of a component")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    publish->add_flag("--new-component", line->request.newComponents,
                      "Allow components that no earlier release has");
    publish->add_flag("--any-updater", line->request.anyUpdater,
                      "Publish an update.rlb that is no updater");
    publish->add_flag("--dry-run", line->dryRun,
                      "Say what players would get, and leave the store as it is");
    publish
        ->add_option("--jobs", line->request.limits.jobs,
                     "Make N patches at a time; as many as there are processors unless given")
        ->type_name("N")
        ->check(CLI::Range(1, 1024));
    publish
        ->add_option("--memory", line->request.limits.memory,
                     "Memory for making patches (500M, 4G); half of what is free unless given")
        ->type_name("BYTES")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::PositiveNumber);
    publish->callback([=] {
        for (const std::string& source : line->sources) {
            const size_t equals = source.find('=');
            line->request.components.push_back(
                {source.substr(0, equals), source.substr(equals + 1)});
        }
        line->status = Publish(line->request, line->dryRun);
    });
}

void AddList(CLI::App* app, CommandLine* line) {
    CLI::App* list =
        AddStoreCommand(app, "list", "List a store's releases and who gets them", line);
    list->callback([=] { line->status = List(line->store); });
}

void AddWithdraw(CLI::App* app, CommandLine* line) {
    CLI::App* withdraw = AddStoreCommand(
        app, "withdraw", "Remove a release, so that players get the one before it", line);
    withdraw
        ->add_option("VERSION", line->version, "The version, or the number of a damaged release")
        ->required();
    withdraw->callback([=] { line->status = Withdraw(line->store, line->version); });
}

void AddPrune(CLI::App* app, CommandLine* line) {
    CLI::App* prune = AddStoreCommand(app, "prune", "Remove old releases from a store", line);
    prune
        ->add_option("--keep", line->keep,
                     "Remove a release after which came N others with all of its components")
        ->required()
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000));
    prune->callback([=] { line->status = Prune(line->store, line->keep); });
}

void AddCheck(CLI::App* app, CommandLine* line) {
    CLI::App* check =
        AddStoreCommand(app, "check", "Compare a store's files with its manifests", line);
    check->callback([=] { line->status = Check(line->store); });
}

void AddServe(CLI::App* app, CommandLine* line) {
    CLI::App* serve = AddStoreCommand(app, "serve", "Serve a store's releases to updaters", line);
    serve->add_option("--listen", line->server.address, "Local IPv4 address to listen on")
        ->check(CheckAddress)
        ->capture_default_str();
    serve->add_option("--port", line->server.port, "Port to listen on")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    serve->add_option("--slots", line->server.slots, "How many clients download at a time")
        ->check(CLI::Range(1, 100'000))
        ->capture_default_str();
    serve
        ->add_option("--per-address", line->server.perAddress,
                     "How many clients one address may have, 0 for any number")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    const auto addRate = [serve](const char* name, uint64_t* rate, const char* description) {
        serve->add_option(name, *rate, description)
            ->type_name("BYTES")
            ->transform(CLI::AsSizeValue(true))
            ->capture_default_str();
    };
    addRate("--client-rate", &line->server.clientRate,
            "Bytes in a second for each download, as 500k or 20M; 0 for no limit");
    addRate("--total-rate", &line->server.totalRate, "The same for all downloads together");
    addRate("--min-rate", &line->server.minRate, "Who is slower over a minute loses the slot");
    serve
        ->add_option("--drain", line->server.drainSeconds,
                     "How long downloads may go on when the server is told to stop")
        ->type_name("SECONDS")
        ->check(CLI::Range(0, 86'400))
        ->capture_default_str();
    serve->add_option("--motd", line->server.motdFile,
                      "Text file with the message of the day, read anew for each client; at most "
                      "64 KiB of it are shown");
    serve
        ->add_option("--metrics", line->server.metrics,
                     "Where to answer HTTP requests for /metrics, in the format of Prometheus")
        ->type_name("ADDRESS:PORT")
        ->check(CheckMetricsAddress);
    serve->callback([=] {
        // Every download would be too slow.
        const uint64_t share = line->server.totalRate / static_cast<uint64_t>(line->server.slots);
        if ((line->server.clientRate > 0 && line->server.clientRate < line->server.minRate) ||
            (line->server.totalRate > 0 && share < line->server.minRate)) {
            throw CLI::ValidationError("--min-rate is above what the other rates leave a download");
        }
        line->status = Serve(line->store, line->server);
    });
}

void AddDiff(CLI::App* app, CommandLine* line) {
    CLI::App* diff = app->add_subcommand("diff", "Make the patch from one file to another");
    diff->add_option("OLD", line->from, "The file to start from")->required();
    diff->add_option("NEW", line->to, "The file to make")->required();
    diff->add_option("PATCH", line->patch, "Where to write the patch")->required();
    diff->callback([=] { line->status = Diff(line->from, line->to, line->patch); });
}

void AddApply(CLI::App* app, CommandLine* line) {
    CLI::App* apply = app->add_subcommand("apply", "Apply a patch as the updater would");
    apply->add_option("OLD", line->from, "The file to start from")->required();
    apply->add_option("PATCH", line->patch, "The patch")->required();
    apply->add_option("RESULT", line->to, "Where to write the new file")->required();
    apply->callback([=] { line->status = Apply(line->from, line->patch, line->to); });
}

void AddShow(CLI::App* app, CommandLine* line) {
    CLI::App* show =
        app->add_subcommand("show", "List the commands of a patch, or tell an updater's note");
    show->add_option("FILE", line->patch, "The patch or program")->required();
    show->callback([=] { line->status = Show(line->patch); });
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "Publishes releases of the game to a store, serves them, and works on the store's files.",
        "halcyrix-release");
    app.footer("Exit status: 0 done, 1 a problem in the data or the system, 2 wrong usage.");
    app.require_subcommand(1);
    CommandLine line;
    for (const auto add : {AddPublish, AddList, AddWithdraw, AddPrune, AddCheck, AddServe, AddDiff,
                           AddApply, AddShow}) {
        add(&app, &line);
    }
    for (CLI::App* command : app.get_subcommands({})) {
        command->set_version_flag("--version", "halcyrix-release " HALCYRIX_VERSION,
                                  "Print the version and exit");
    }
    app.set_version_flag("--version", "halcyrix-release " HALCYRIX_VERSION,
                         "Print the version and exit");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    // What was printed counts as done only when it arrived.
    if (fflush(stdout) != 0) line.status = Problem("standard output cannot be written");
    return line.status;
}
