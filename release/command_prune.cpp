#include <cstdio>
#include <memory>

#include "release/commands.h"
#include "store/pruner.h"
#include "store/store_writer.h"

namespace {

struct Arguments {
    std::string store;
    size_t keep = 0;
};

ExitStatus Prune(const Arguments& arguments) {
    std::string error;
    // Opening for writing would make a store where there is none.
    if (!Store::Open(arguments.store, &error)) return Problem(error);
    const std::unique_ptr<StoreWriter> writer = StoreWriter::Open(arguments.store, &error);
    if (!writer || !writer->RemoveLeftovers(&error)) return Problem(error);

    const auto releases = writer->Published().Releases();
    const auto superseded = SupersededReleases(releases, arguments.keep);
    for (const auto& release : superseded) {
        if (!writer->Remove(*release, &error)) return Problem(error);
        printf("removed %s\n", release->Version().c_str());
    }
    printf("%zu releases removed, %zu kept\n", superseded.size(),
           releases.size() - superseded.size());
    return EXIT_DONE;
}

}  // namespace

void AddPruneCommand(CLI::App* app, ExitStatus* status) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App* command = AddCommand(app, "prune", "Remove old releases from a store");
    command->add_option("STORE", arguments->store, "The store")->required();
    command
        ->add_option("--keep", arguments->keep,
                     "Remove a release after which came N others with all of its components")
        ->required()
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000));
    command->callback([arguments, status] { *status = Prune(*arguments); });
}
