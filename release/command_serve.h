// halcyrix-release serve: the update server as a program.
#ifndef HALCYRIX_RELEASE_COMMAND_SERVE_H
#define HALCYRIX_RELEASE_COMMAND_SERVE_H

#include <CLI/CLI.hpp>

// Adds the command to the tool; running it puts the exit status into *status.
void AddServeCommand(CLI::App* tool, int* status);

#endif
