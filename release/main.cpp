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

}  // namespace

int main(int argc, char** argv) {
    ExitStatus status = EXIT_DONE;
    CLI::App app(
        "Publishes releases of the game to a store, serves them, and works on the store's files.",
        "halcyrix-release");
    app.footer("Exit status: 0 done, 1 a problem in the data or the system, 2 wrong usage.");
    app.require_subcommand(1);

    PublishRequest request;
    std::vector<std::string> sources;
    bool dry_run = false;
    CLI::App* publish = app.add_subcommand("publish", "Add a release to a store");
    publish->add_option("STORE", request.store, "The store, made when there is none")->required();
    publish->add_option("VERSION", request.version, "The version, a word not used before")
        ->required();
    publish->add_option("SOURCES", sources, "Each component and where its files are")
        ->required()
        ->type_name("COMPONENT=DIR")
        ->check(CheckSource);
    publish
        ->add_option("--patches-from", request.patchesFrom,
                     "Make patches from the last N releases of a component")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    publish->add_flag("--new-component", request.newComponents,
                      "Allow components that no earlier release has");
    publish->add_flag("--any-updater", request.anyUpdater,
                      "Publish an update.rlb that is no updater");
    publish->add_flag("--dry-run", dry_run,
                      "Say what players would get, and leave the store as it is");
    publish
        ->add_option("--jobs", request.limits.jobs,
                     "Make N patches at a time; as many as there are processors unless given")
        ->type_name("N")
        ->check(CLI::Range(1, 1024));
    publish
        ->add_option("--memory", request.limits.memory,
                     "Memory for making patches (500M, 4G); half of what is free unless given")
        ->type_name("BYTES")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::PositiveNumber);
    publish->callback([&] {
        for (const std::string& source : sources) {
            const size_t equals = source.find('=');
            request.components.push_back({source.substr(0, equals), source.substr(equals + 1)});
        }
        status = Publish(request, dry_run);
    });

    std::string store, version;
    size_t keep = 0;
    CLI::App* list = app.add_subcommand("list", "List a store's releases and who gets them");
    list->add_option("STORE", store, "The store")->required();
    list->callback([&] { status = List(store); });

    CLI::App* withdraw =
        app.add_subcommand("withdraw", "Remove a release, so that players get the one before it");
    withdraw->add_option("STORE", store, "The store")->required();
    withdraw->add_option("VERSION", version, "The version, or the number of a damaged release")
        ->required();
    withdraw->callback([&] { status = Withdraw(store, version); });

    CLI::App* prune = app.add_subcommand("prune", "Remove old releases from a store");
    prune->add_option("STORE", store, "The store")->required();
    prune
        ->add_option("--keep", keep,
                     "Remove a release after which came N others with all of its components")
        ->required()
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000));
    prune->callback([&] { status = Prune(store, keep); });

    CLI::App* check = app.add_subcommand("check", "Compare a store's files with its manifests");
    check->add_option("STORE", store, "The store")->required();
    check->callback([&] { status = Check(store); });

    ServerOptions server;
    CLI::App* serve = app.add_subcommand("serve", "Serve a store's releases to updaters");
    serve->add_option("STORE", store, "The store")->required();
    serve->add_option("--listen", server.address, "Local IPv4 address to listen on")
        ->check(CheckAddress)
        ->capture_default_str();
    serve->add_option("--port", server.port, "Port to listen on")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    serve->add_option("--slots", server.slots, "How many clients download at a time")
        ->check(CLI::Range(1, 100'000))
        ->capture_default_str();
    serve
        ->add_option("--per-address", server.perAddress,
                     "How many clients one address may have, 0 for any number")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    const auto addRate = [serve](const char* name, uint64_t* rate, const char* description) {
        serve->add_option(name, *rate, description)
            ->type_name("BYTES")
            ->transform(CLI::AsSizeValue(true))
            ->capture_default_str();
    };
    addRate("--client-rate", &server.clientRate,
            "Bytes in a second for each download, as 500k or 20M; 0 for no limit");
    addRate("--total-rate", &server.totalRate, "The same for all downloads together");
    addRate("--min-rate", &server.minRate, "Who is slower over a minute loses the slot");
    serve
        ->add_option("--drain", server.drainSeconds,
                     "How long downloads may go on when the server is told to stop")
        ->type_name("SECONDS")
        ->check(CLI::Range(0, 86'400))
        ->capture_default_str();
    serve->add_option("--motd", server.motdFile,
                      "Text file with the message of the day, read anew for each client; at most "
                      "64 KiB of it are shown");
    serve
        ->add_option("--metrics", server.metrics,
                     "Where to answer HTTP requests for /metrics, in the format of Prometheus")
        ->type_name("ADDRESS:PORT")
        ->check(CheckMetricsAddress);
    serve->callback([&] {
        // Every download would be too slow.
        const uint64_t share = server.totalRate / static_cast<uint64_t>(server.slots);
        if ((server.clientRate > 0 && server.clientRate < server.minRate) ||
            (server.totalRate > 0 && share < server.minRate)) {
            throw CLI::ValidationError("--min-rate is above what the other rates leave a download");
        }
        status = Serve(store, server);
    });

    std::string from, to, patch;
    CLI::App* diff = app.add_subcommand("diff", "Make the patch from one file to another");
    diff->add_option("OLD", from, "The file to start from")->required();
    diff->add_option("NEW", to, "The file to make")->required();
    diff->add_option("PATCH", patch, "Where to write the patch")->required();
    diff->callback([&] { status = Diff(from, to, patch); });

    CLI::App* apply = app.add_subcommand("apply", "Apply a patch as the updater would");
    apply->add_option("OLD", from, "The file to start from")->required();
    apply->add_option("PATCH", patch, "The patch")->required();
    apply->add_option("RESULT", to, "Where to write the new file")->required();
    apply->callback([&] { status = Apply(from, patch, to); });

    CLI::App* show = app.add_subcommand("show", "List the commands of a patch, or tell an updater's note");
    show->add_option("FILE", patch, "The patch or program")->required();
    show->callback([&] { status = Show(patch); });

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
    if (fflush(stdout) != 0) status = Problem("standard output cannot be written");
    return status;
}
