// halcyrix-release: the maker's tool.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <cstdio>
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

// Refuses what is not the wanted.
template <class Test>
CLI::Validator Is(const std::string& wanted, Test test) {
    const auto check = [=](const std::string& text) {
        return test(text) ? std::string() : text + " is not " + wanted;
    };
    return {check, ""};
}

// Limits do not stand in the help.
CLI::Validator Between(size_t least, size_t most) {
    return CLI::Range(least, most).description("");
}

// Turns bytes with a unit, such as 20M, into a number.
CLI::Validator ToBytes(bool k_is_1000) {
    const auto convert = [size = CLI::AsSizeValue(k_is_1000)](std::string& text) {
        const std::string given = text;
        try {
            if (size(text).empty()) return std::string();
        } catch (const CLI::ValidationError&) {
            // Its message does not name the option.
        }
        return given + " is no number of bytes, such as 500k or 20M";
    };
    return {convert, ""};
}

// What the command line says.
struct CommandLine {
    PublishRequest request;
    bool dryRun = false;
    bool json = false;
    std::string store, version;
    size_t keep = 0;
    ServerOptions server;
    std::string from, to, patch;
};

// A word of a command that must be given, where it goes, and its help.
struct Word {
    const char* name;
    std::string* value;
    const char* help;
};

CLI::App* AddCommand(CLI::App* app, const char* name, const char* help,
                     const std::vector<Word>& words) {
    CLI::App* command = app->add_subcommand(name, help);
    for (const Word& word : words) {
        command->add_option(word.name, *word.value, word.help)->type_name("")->required();
    }
    return command;
}

CLI::Option* AddNumber(CLI::App* command, const char* name, size_t* value, const char* help,
                       size_t least, size_t most) {
    return command->add_option(name, *value, help)->type_name("N")->check(Between(least, most));
}

void AddJson(CLI::App* command, CommandLine* line) {
    command->add_flag("--json", line->json, "Write one JSON object");
}

void AddPublish(CLI::App* app, CommandLine* line) {
    PublishRequest& request = line->request;
    CLI::App* publish =
        AddCommand(app, "publish", "Add a release to a store",
                   {{"STORE", &request.store, "The store, made when there is none"},
                    {"VERSION", &request.version, "The version, a word not used before"}});
    const auto take = [&request](const std::vector<std::string>& sources) {
        for (const std::string& source : sources) {
            const size_t equals = source.find('=');
            request.components.push_back({source.substr(0, equals), source.substr(equals + 1)});
        }
    };
    publish
        ->add_option_function<std::vector<std::string>>(
            "SOURCES", take,
            "COMPONENT=DIR for each; linux64upd has update.rlb, and its libraries in lib/")
        ->type_name("")
        ->required()
        ->check(Is("COMPONENT=DIR",
                   [](const std::string& text) { return text.find('=') != text.npos; }));
    AddNumber(publish, "--patches-from", &request.patchesFrom,
              "From how many releases of a component to make patches", 0, 1'000'000)
        ->capture_default_str();
    publish->add_flag("--new-component", request.newComponents,
                      "Allow components that no earlier release has");
    publish->add_flag("--allow-empty", request.allowEmpty, "Publish files that have not changed");
    publish->add_flag("--any-updater", request.anyUpdater,
                      "Publish an update.rlb that is no updater");
    AddJson(publish, line);
    publish->add_flag("--dry-run", line->dryRun, "Say what players would get, and publish nothing");
    AddNumber(publish, "--jobs", &request.limits.jobs,
              "Patches to make at a time; default: one a processor", 1, 1024);
    publish
        ->add_option("--memory", request.limits.memory,
                     "For all patches at a time; default: half of what is free")
        ->type_name("BYTES")
        ->transform(ToBytes(false))
        ->check(Between(1, INT64_MAX));
}

void AddPrune(CLI::App* app, CommandLine* line) {
    CLI::App* prune = AddCommand(app, "prune", "Remove old releases from a store",
                                 {{"STORE", &line->store, "The store"}});
    AddNumber(prune, "--keep", &line->keep, "Keep N releases of each set of components", 1,
              1'000'000)
        ->required();
}

void AddServe(CLI::App* app, CommandLine* line) {
    CLI::App* serve = AddCommand(app, "serve", "Serve a store's releases to updaters",
                                 {{"STORE", &line->store, "The store"}});
    ServerOptions& server = line->server;
    const auto add = [serve](const char* group, const char* name, auto* value, const char* type,
                             const char* description) {
        return serve->add_option(name, *value, description)
            ->type_name(type)
            ->group(group)
            ->capture_default_str();
    };
    const auto addRate = [add](const char* name, uint64_t* rate, const char* description) {
        add("Rates", name, rate, "BYTES", description)
            ->transform(ToBytes(true))
            ->check(Between(0, INT64_MAX));
    };
    add("Clients", "--listen", &server.address, "ADDRESS", "Local IPv4 address to listen on")
        ->check(CLI::Validator(CLI::ValidIPV4).description(""));
    add("Clients", "--port", &server.port, "PORT", "Port to listen on")->check(Between(1, 65535));
    add("Clients", "--slots", &server.slots, "N", "Clients that download at a time")
        ->check(Between(1, 100'000));
    add("Clients", "--per-address", &server.perAddress, "N",
        "Clients that one address may have; 0: no limit")
        ->check(Between(0, 1'000'000));
    add("Clients", "--proxy-protocol", &server.proxies, "ADDRESS[/BITS]",
        "Balancer that names its clients; may be given again")
        ->allow_extra_args(false)
        ->default_str("")
        ->check(Is("ADDRESS or ADDRESS/BITS", ParseRange));
    add("Clients", "--motd", &server.motdFile, "FILE", "Message of the day for all players");
    addRate("--client-rate", &server.clientRate, "Limit of each download, in bytes a second");
    addRate("--total-rate", &server.totalRate, "Limit of all downloads together; 0: none");
    addRate("--min-rate", &server.minRate, "A slower download loses its slot in a minute");
    add("Stopping", "--drain", &server.drainSeconds, "SECONDS",
        "How long downloads go on after the first signal")
        ->check(Between(0, 86'400));
    add("Watching", "--metrics", &server.metrics, "ADDRESS:PORT",
        "Where to answer HTTP requests for /metrics")
        ->check(Is("ADDRESS:PORT", ParseAddress));
    serve->callback([&server] {
        // Every download would be too slow.
        const uint64_t share = server.totalRate / static_cast<uint64_t>(server.slots);
        if ((server.clientRate > 0 && server.clientRate < server.minRate) ||
            (server.totalRate > 0 && share < server.minRate)) {
            throw CLI::ValidationError("--min-rate is above what the other rates leave a download");
        }
    });
}

void AddDiff(CLI::App* app, CommandLine* line) {
    CLI::App* diff = AddCommand(app, "diff", "Make the patch from one file to another",
                                {{"OLD", &line->from, "The file to start from"},
                                 {"NEW", &line->to, "The file to make"},
                                 {"PATCH", &line->patch, "Where to write the patch"}});
    AddNumber(diff, "--jobs", &line->request.limits.jobs,
              "Use N threads; as many as there are processors unless given", 1, 1024);
}

void AddCommands(CLI::App* app, CommandLine* line) {
    const Word store = {"STORE", &line->store, "The store"};
    AddPublish(app, line);
    AddJson(AddCommand(app, "list", "List a store's releases and who gets them", {store}), line);
    AddCommand(
        app, "withdraw", "Remove a release, so that players get the one before it",
        {store, {"VERSION", &line->version, "The version, or the number of a damaged release"}});
    AddPrune(app, line);
    AddJson(AddCommand(app, "check", "Compare a store's files with its manifests", {store}), line);
    AddServe(app, line);
    AddDiff(app, line);
    AddCommand(app, "apply", "Apply a patch as the updater would",
               {{"OLD", &line->from, "The file to start from"},
                {"PATCH", &line->patch, "The patch"},
                {"RESULT", &line->to, "Where to write the new file"}});
    AddCommand(app, "show", "List the commands of a patch, or tell an updater's note",
               {{"FILE", &line->patch, "The patch or program"}});
}

ExitStatus RunCommand(const std::string& name, const CommandLine& line, Json* json) {
    if (name == "publish") return Publish(line.request, line.dryRun, json);
    if (name == "list") return List(line.store, json);
    if (name == "withdraw") return Withdraw(line.store, line.version);
    if (name == "prune") return Prune(line.store, line.keep);
    if (name == "check") return Check(line.store, json);
    if (name == "serve") return Serve(line.store, line.server);
    if (name == "diff") return Diff(line.from, line.to, line.patch, line.request.limits.jobs);
    if (name == "apply") return Apply(line.from, line.patch, line.to);
    return Show(line.patch);
}

// With --json a command's texts go to standard error, and its object to standard output.
ExitStatus RunWithJson(const std::string& name, const CommandLine& line) {
    Json json = Json::object();
    if (!line.json) return RunCommand(name, line, &json);
    FILE* const output = fdopen(dup(STDOUT_FILENO), "w");
    if (output == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) == -1) {
        return Problem("standard output cannot be written");
    }
    const ExitStatus status = RunCommand(name, line, &json);
    fprintf(output, "%s\n",
            json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    return fclose(output) == 0 ? status : Problem("standard output cannot be written");
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
        const auto distance = [&words](const CLI::App* command) {
            return EditDistance(words.front(), command->get_name());
        };
        text = "there is no command \"" + words.front() + "\"; the nearest is \"" +
               std::ranges::min(commands, {}, distance)->get_name() + "\"";
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
    app.get_formatter()->column_width(28);
    app.get_formatter()->label("REQUIRED", "");
    CommandLine line;
    AddCommands(&app, &line);
    for (CLI::App* command : app.get_subcommands({})) {
        command->get_help_ptr()->group("");
        command->set_version_flag("--version", kVersion)->group("");
    }
    app.set_version_flag("--version", kVersion, "Print the version and exit");
    app.footer("Exit status: 0 done, 1 a problem in the data or the system, 2 wrong usage.");
    ExitStatus status = EXIT_DONE;
    try {
        app.parse(argc, argv);
        status = RunWithJson(app.get_subcommands().front()->get_name(), line);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) return UsageError(app, error.what());
        app.exit(error);
    }
    // What was printed counts as done only when it arrived.
    if (fflush(stdout) == 0) return status;
    return Problem(status == EXIT_DONE ? "done, but standard output cannot be written"
                                       : "standard output cannot be written");
}
