#include "release/commands.h"

#include <cstdio>

#include "halcyrix_config.h"

CLI::App* AddCommand(CLI::App* app, const std::string& name, const std::string& description) {
    CLI::App* command = app->add_subcommand(name, description);
    command->set_version_flag("--version", "halcyrix-release " HALCYRIX_VERSION,
                              "Print the version and exit");
    return command;
}

ExitStatus Problem(const std::string& text) {
    fprintf(stderr, "halcyrix-release: %s\n", text.c_str());
    return EXIT_PROBLEM;
}
