#include <cinttypes>
#include <cstdio>
#include <memory>

#include "release/commands.h"
#include "store/checker.h"

namespace {

ExitStatus Check(const std::string& store) {
    const CheckReport report = CheckStore(store);
    for (const std::string& problem : report.problems) Problem(problem);
    printf("%zu releases, %zu files of %" PRIu64 " bytes, %zu problems\n", report.releases,
           report.files, report.bytes, report.problems.size());
    return report.problems.empty() ? EXIT_DONE : EXIT_PROBLEM;
}

}  // namespace

void AddCheckCommand(CLI::App* app, ExitStatus* status) {
    const auto store = std::make_shared<std::string>();
    CLI::App* command = AddCommand(app, "check", "Compare a store's files with its manifests");
    command->add_option("STORE", *store, "The store")->required();
    command->callback([store, status] { *status = Check(*store); });
}
