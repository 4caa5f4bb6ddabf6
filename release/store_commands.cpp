#include <cinttypes>
#include <cstdio>
#include <memory>

#include "release/commands.h"
#include "store/checker.h"
#include "store/pruner.h"
#include "store/store_writer.h"

namespace {

// A store that is there, opened for writing.
std::unique_ptr<StoreWriter> OpenForWriting(const std::string& store, std::string* error) {
    // Opening for writing alone would make a store where there is none.
    return Store::Open(store, error) ? StoreWriter::Open(store, error) : nullptr;
}

}  // namespace

ExitStatus Check(const std::string& store) {
    const CheckReport report = CheckStore(store);
    for (const std::string& problem : report.problems) Problem(problem);
    for (const std::string& advice : report.advice) Problem(advice);
    printf("%zu releases, %zu files of %" PRIu64 " bytes, %zu problems\n", report.releases,
           report.files, report.bytes, report.problems.size());
    return report.problems.empty() ? EXIT_DONE : EXIT_PROBLEM;
}

ExitStatus Prune(const std::string& store, size_t keep) {
    std::string error;
    const std::unique_ptr<StoreWriter> writer = OpenForWriting(store, &error);
    if (!writer || !writer->RemoveLeftovers(&error)) return Problem(error);
    for (const auto& [sequence, damaged] : writer->Published().Damaged()) {
        Problem("warning: release " + SequenceName(sequence) +
                " is damaged and neither counted nor removed: " + damaged.reason);
    }

    const auto releases = writer->Published().Releases();
    const auto superseded = SupersededReleases(releases, keep);
    for (const auto& release : superseded) {
        if (!writer->Remove(release->Sequence(), &error)) return Problem(error);
        printf("removed %s\n", release->Version().c_str());
    }
    printf("%zu releases removed, %zu kept\n", superseded.size(),
           releases.size() - superseded.size());
    return EXIT_DONE;
}
