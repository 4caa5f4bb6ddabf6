// The commands of halcyrix-release, each a function of what the command line says.
#pragma once

#include <cstddef>
#include <cstdio>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "serve/server_options.h"
#include "store/publisher.h"

enum ExitStatus : int {
    EXIT_DONE = 0,
    EXIT_PROBLEM = 1,  // found in the data or the system; told on standard error
    EXIT_USAGE = 2,
};

// Tells the problem on standard error.
inline ExitStatus Problem(const std::string& text) {
    fprintf(stderr, "halcyrix-release: %s\n", text.c_str());
    return EXIT_PROBLEM;
}

// Some commands also describe what they found, for --json.
using Json = nlohmann::ordered_json;

ExitStatus Publish(const PublishRequest& request, bool dry_run, Json* json);
ExitStatus List(const std::string& store, Json* json);
ExitStatus Withdraw(const std::string& store, const std::string& version);
ExitStatus Prune(const std::string& store, size_t keep);
ExitStatus Check(const std::string& store, Json* json);
ExitStatus Serve(const std::string& store, const ServerOptions& options);

ExitStatus Diff(const std::string& from, const std::string& to, const std::string& patch,
                size_t jobs);
ExitStatus Apply(const std::string& from, const std::string& patch, const std::string& result);
ExitStatus Show(const std::string& patch);
