// halcyrix-release: the maker's tool.
#include <cstdio>

#include "halcyrix_config.h"
#include "release/commands.h"

int main(int argc, char** argv) {
    ExitStatus status = EXIT_DONE;
    CLI::App app(
        "Publishes releases of the game to a store, serves them, and works on the store's files.",
        "halcyrix-release");
    app.set_version_flag("--version", "halcyrix-release " HALCYRIX_VERSION,
                         "Print the version and exit");
    app.footer("Exit status: 0 done, 1 a problem in the data or the system, 2 wrong usage.");
    app.require_subcommand(1);
    AddPublishCommand(&app, &status);
    AddPruneCommand(&app, &status);
    AddServeCommand(&app, &status);
    AddDiffCommand(&app, &status);
    AddApplyCommand(&app, &status);
    AddShowCommand(&app, &status);
    AddCheckCommand(&app, &status);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    // What was printed counts as done only when it arrived.
    if (fflush(stdout) != 0) status = Problem("standard output cannot be written");
    return status;
}
