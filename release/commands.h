// The commands of halcyrix-release. Each adds itself to the command line; when it has been run,
// `status` holds what the program ends with.
#ifndef HALCYRIX_RELEASE_COMMANDS_H
#define HALCYRIX_RELEASE_COMMANDS_H

#include <CLI/CLI.hpp>
#include <string>

enum ExitStatus : int {
    EXIT_DONE = 0,
    EXIT_PROBLEM = 1,  // found in the data or the system; told on standard error
    EXIT_USAGE = 2,
};

// `status` must live until the command line is parsed.
void AddPublishCommand(CLI::App* app, ExitStatus* status);
void AddPruneCommand(CLI::App* app, ExitStatus* status);
void AddServeCommand(CLI::App* app, ExitStatus* status);
void AddDiffCommand(CLI::App* app, ExitStatus* status);
void AddApplyCommand(CLI::App* app, ExitStatus* status);
void AddShowCommand(CLI::App* app, ExitStatus* status);
void AddCheckCommand(CLI::App* app, ExitStatus* status);

// A command with --help and --version.
CLI::App* AddCommand(CLI::App* app, const std::string& name, const std::string& description);

// Tells the problem on standard error.
ExitStatus Problem(const std::string& text);

#endif
