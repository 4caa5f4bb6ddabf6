// halcyrix-release: the maker's tool.
#include <arpa/inet.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "halcyrix_config.h"
#include "release/commands.h"
#include "serve/addresses.h"

namespace {

constexpr char kVersion[] = "halcyrix-release " HALCYRIX_VERSION;

// Each check returns why the text is refused, and an empty string for a good one.

std::string CheckSource(const std::string& text) {
    return text.find('=') == std::string::npos ? text + " is not COMPONENT=DIR" : "";
}

std::string CheckAddress(const std::string& text) {
    in_addr address;
    return inet_pton(AF_INET, text.c_str(), &address) == 1 ? "" : text + " is no IPv4 address";
}

std::string CheckAddressAndPort(const std::string& text) {
    return ParseAddress(text) ? "" : text + " is not ADDRESS:PORT";
}

std::string CheckRange(const std::string& text) {
    return ParseRange(text) ? "" : text + " is not ADDRESS or ADDRESS/BITS";
}

// What follows the whole number that the text begins with; null for a text that does not, or with
// one of more than 64 bits.
const char* ReadNumber(const std::string& text, uint64_t* number) {
    const auto read = std::from_chars(text.data(), text.data() + text.size(), *number);
    return read.ec == std::errc() ? read.ptr : nullptr;
}

std::function<std::string(const std::string&)> NumberFrom(uint64_t least,
                                                          uint64_t most = UINT64_MAX) {
    return [=](const std::string& text) {
        uint64_t number = 0;
        const char* const rest = ReadNumber(text, &number);
        if (rest != nullptr && *rest == '\0' && number >= least && number <= most) {
            return std::string();
        }
        return text + " is no number from " + std::to_string(least) +
               (most == UINT64_MAX ? " on" : " to " + std::to_string(most));
    };
}

// Turns bytes with a unit, such as 20M, into a number.
CLI::Validator ToBytes(bool k_is_1000) {
    const auto convert = [size = CLI::AsSizeValue(k_is_1000)](std::string& text) {
        uint64_t ignored;
        if (ReadNumber(text, &ignored) != nullptr && size(text).empty()) return std::string();
        return text + " is no number of bytes, such as 500k or 20M";
    };
    return {convert, ""};
}

// Keeps the help short.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter() { column_width(28); }

    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override {
        std::string help = CLI::Formatter::make_help(app, std::move(name), mode);
        for (size_t at; (at = help.find("\n\n\n")) != help.npos;) help.erase(at, 1);
        return help;
    }

    std::string make_option_opts(const CLI::Option* option) const override {
        return option->nonpositional() ? CLI::Formatter::make_option_opts(option) : "";
    }
};

// What the command line says, and what came of the command.
struct CommandLine {
    PublishRequest request;
    std::vector<std::string> sources;
    bool dryRun = false;
    bool json = false;
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

// Runs a command. With --json its texts go to standard error and one object to standard output.
ExitStatus RunWithJson(bool wanted, const std::function<ExitStatus(Json*)>& run) {
    if (!wanted) return run(nullptr);
    FILE* const output = fdopen(dup(STDOUT_FILENO), "w");
    if (output == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) == -1) {
        return Problem("standard output cannot be written");
    }
    Json json = Json::object();
    const ExitStatus status = run(&json);
    fprintf(output, "%s\n",
            json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    return fclose(output) == 0 ? status : Problem("standard output cannot be written");
}

// Each of these functions adds a command, whose callback runs it.

void AddPublish(CLI::App* app, CommandLine* line) {
    CLI::App* publish = app->add_subcommand("publish", "Add a release to a store");
    publish->add_option("STORE", line->request.store, "The store, made when there is none")
        ->required();
    publish->add_option("VERSION", line->request.version, "The version, a word not used before")
        ->required();
    publish
        ->add_option("SOURCES", line->sources,
                     "COMPONENT=DIR for each; linux64upd has update.rlb, and its libraries in lib/")
        ->required()
        ->check(CheckSource);
    publish
        ->add_option("--patches-from", line->request.patchesFrom,
                     "From how many releases of a component to make patches")
        ->type_name("N")
        ->check(NumberFrom(0))
        ->capture_default_str();
    publish->add_flag("--new-component", line->request.newComponents,
                      "Allow components that no earlier release has");
    publish->add_flag("--allow-empty", line->request.allowEmpty,
                      "Publish files that have not changed");
    publish->add_flag("--any-updater", line->request.anyUpdater,
                      "Publish an update.rlb that is no updater");
    publish->add_flag("--json", line->json, "Write one JSON object");
    publish->add_flag("--dry-run", line->dryRun, "Say what players would get, and publish nothing");
    publish
        ->add_option("--jobs", line->request.limits.jobs,
                     "Patches to make at a time; default: one a processor")
        ->type_name("N")
        ->check(NumberFrom(1, 1024));
    publish
        ->add_option("--memory", line->request.limits.memory,
                     "For all patches at a time; default: half of what is free")
        ->type_name("BYTES")
        ->transform(ToBytes(false))
        ->check(NumberFrom(1));
    publish->callback([=] {
        for (const std::string& source : line->sources) {
            const size_t equals = source.find('=');
            line->request.components.push_back(
                {source.substr(0, equals), source.substr(equals + 1)});
        }
        line->status = RunWithJson(
            line->json, [line](Json* json) { return Publish(line->request, line->dryRun, json); });
    });
}

void AddList(CLI::App* app, CommandLine* line) {
    CLI::App* list =
        AddStoreCommand(app, "list", "List a store's releases and who gets them", line);
    list->add_flag("--json", line->json, "Write one JSON object");
    list->callback([=] {
        line->status =
            RunWithJson(line->json, [line](Json* json) { return List(line->store, json); });
    });
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
    prune->add_option("--keep", line->keep, "Keep N releases of each set of components")
        ->required()
        ->type_name("N")
        ->check(NumberFrom(1, 1'000'000));
    prune->callback([=] { line->status = Prune(line->store, line->keep); });
}

void AddCheck(CLI::App* app, CommandLine* line) {
    CLI::App* check =
        AddStoreCommand(app, "check", "Compare a store's files with its manifests", line);
    check->add_flag("--json", line->json, "Write one JSON object");
    check->callback([=] {
        line->status =
            RunWithJson(line->json, [line](Json* json) { return Check(line->store, json); });
    });
}

void AddServe(CLI::App* app, CommandLine* line) {
    CLI::App* serve = AddStoreCommand(app, "serve", "Serve a store's releases to updaters", line);
    ServerOptions& server = line->server;
    const auto add = [serve](const char* group, const char* name, auto* value, const char* type,
                             const char* description) {
        return serve->add_option(name, *value, description)
            ->type_name(type)
            ->group(group)
            ->capture_default_str();
    };
    const auto addRate = [add](const char* name, uint64_t* rate, const char* description) {
        add("Rates", name, rate, "BYTES", description)->transform(ToBytes(true));
    };
    add("Clients", "--listen", &server.address, "ADDRESS", "Local IPv4 address to listen on")
        ->check(CheckAddress);
    add("Clients", "--port", &server.port, "PORT", "Port to listen on")
        ->check(NumberFrom(1, 65535));
    add("Clients", "--slots", &server.slots, "N", "Clients that download at a time")
        ->check(NumberFrom(1, 100'000));
    add("Clients", "--per-address", &server.perAddress, "N",
        "Clients that one address may have; 0: no limit")
        ->check(NumberFrom(0, INT_MAX));
    add("Clients", "--proxy-protocol", &server.proxies, "ADDRESS[/BITS]",
        "Balancer that names its clients; may be given again")
        ->allow_extra_args(false)
        ->check(CheckRange);
    add("Clients", "--motd", &server.motdFile, "FILE", "Message of the day for all players");
    addRate("--client-rate", &server.clientRate, "Limit of each download, in bytes a second");
    addRate("--total-rate", &server.totalRate, "Limit of all downloads together; 0: none");
    addRate("--min-rate", &server.minRate, "A slower download loses its slot in a minute");
    add("Stopping", "--drain", &server.drainSeconds, "SECONDS",
        "How long downloads go on after the first signal")
        ->check(NumberFrom(0, 86'400));
    add("Watching", "--metrics", &server.metrics, "ADDRESS:PORT",
        "Where to answer HTTP requests for /metrics")
        ->check(CheckAddressAndPort);
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
    diff->add_option("--jobs", line->request.limits.jobs,
                     "Use N threads; as many as there are processors unless given")
        ->type_name("N")
        ->check(CLI::Range(1, 1024));
    diff->callback(
        [=] { line->status = Diff(line->from, line->to, line->patch, line->request.limits.jobs); });
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

// The number of characters to add, remove or change to make one word of the other.
size_t EditDistance(const std::string& one, const std::string& other) {
    std::vector<size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= one.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i);
        for (size_t j = 1; j <= other.size(); ++j) {
            const size_t changed = diagonal + (one[i - 1] == other[j - 1] ? 0 : 1);
            diagonal = std::exchange(row[j], std::min({changed, row[j] + 1, row[j - 1] + 1}));
        }
    }
    return row.back();
}

ExitStatus UsageError(const CLI::App& app, std::string text) {
    std::string help = "halcyrix-release ";
    if (const auto used = app.get_subcommands(); !used.empty()) {
        help += used.front()->get_name() + " ";
    } else if (const auto words = app.remaining(); !words.empty()) {
        const auto commands = app.get_subcommands({});
        const auto isNearer = [&words](const CLI::App* one, const CLI::App* other) {
            return EditDistance(words.front(), one->get_name()) <
                   EditDistance(words.front(), other->get_name());
        };
        text = "there is no command \"" + words.front() + "\"; the nearest is \"" +
               (*std::min_element(commands.begin(), commands.end(), isNearer))->get_name() + "\"";
    } else {
        text = "a command is required";
    }
    Problem(text + "\nTry \"" + help + "--help\".");
    return EXIT_USAGE;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "Publishes releases of the game to a store, serves them, and works on the store's files.",
        "halcyrix-release");
    app.require_subcommand(1);
    app.formatter(std::make_shared<HelpFormatter>());
    CommandLine line;
    for (const auto add : {AddPublish, AddList, AddWithdraw, AddPrune, AddCheck, AddServe, AddDiff,
                           AddApply, AddShow}) {
        add(&app, &line);
    }
    for (CLI::App* command : app.get_subcommands({})) {
        command->get_help_ptr()->group("");
        command->set_version_flag("--version", kVersion)->group("");
    }
    app.set_version_flag("--version", kVersion, "Print the version and exit");
    app.footer("Exit status: 0 done, 1 a problem in the data or the system, 2 wrong usage.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) return UsageError(app, error.what());
        app.exit(error);
    }
    // What was printed counts as done only when it arrived.
    if (fflush(stdout) != 0) {
        line.status =
            Problem(line.status == EXIT_DONE ? "done, but standard output cannot be written"
                                             : "standard output cannot be written");
    }
    return line.status;
}
