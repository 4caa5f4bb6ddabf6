#include <sys/stat.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <list>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>

#include "log/gamelog.h"
#include "release/commands.h"
#include "release/progress_line.h"
#include "serve/server_log.h"
#include "serve/update_server.h"
#include "store/checker.h"
#include "store/names.h"
#include "store/store_writer.h"

namespace {

// Components that players' updaters ask for together.
using Components = std::list<std::string>;

// What is asked of a store with these releases: what the updater and the game ask, and each
// component of any other name by itself.
std::vector<Components> Audiences(const ReleaseList& releases) {
    std::vector<Components> audiences = {{kUpdaterComponent}, {kGameComponent, kCommonComponent}};
    const std::set<std::string> known = {kUpdaterComponent, kGameComponent, kCommonComponent};
    std::set<std::string> others;
    for (const auto& release : releases) {
        for (const std::string& component : release->Components()) {
            if (!known.contains(component)) others.insert(component);
        }
    }
    for (const std::string& component : others) audiences.push_back({component});
    return audiences;
}

// When the release was made, which copies of it keep.
std::string Date(const Release& release) {
    struct stat status = {};
    char text[32] = "?";
    const std::string manifest = release.Directory() + "/" + kManifestFile;
    if (stat(manifest.c_str(), &status) == 0) {
        strftime(text, sizeof text, "%Y-%m-%d %H:%M", localtime(&status.st_mtime));
    }
    return text;
}

void PrintRelease(const Release& release, const std::string& served) {
    printf("%-12s  %16s  %-26s  %7zu  %13" PRIu64 "  %13" PRIu64 "  %s\n",
           release.Version().c_str(), Date(release).c_str(),
           Joined(release.Components(), "+").c_str(), release.Files().size(),
           BytesOf(release.Files()), BytesOf(release.Patches()), served.c_str());
}

// A release is superseded when at least `keep` later ones have all of its components. Takes the
// releases oldest first. With a `keep` of 1 or more, the newest release with any set of components
// is never superseded, so clients are given the same as before.
ReleaseList SupersededReleases(const ReleaseList& releases, size_t keep) {
    ReleaseList superseded;
    for (auto release = releases.begin(); release != releases.end(); ++release) {
        const auto holdsThem = [&release](const auto& newer) {
            return std::ranges::includes(newer->Components(), (*release)->Components());
        };
        const auto successors = std::count_if(release + 1, releases.end(), holdsThem);
        if (static_cast<size_t>(successors) >= keep) superseded.push_back(*release);
    }
    return superseded;
}

ExitStatus List(const Store& store, Json* json) {
    *json = {{"releases", Json::array()}, {"damaged", Json::array()}};
    printf("%-12s  %16s  %-26s  %7s  %13s  %13s  %s\n", "VERSION", "PUBLISHED", "COMPONENTS",
           "FILES", "BYTES", "PATCHES", "SERVED FOR");
    const auto releases = store.Releases();
    const std::vector<Components> audiences = Audiences(releases);
    for (const auto& release : releases) {
        std::vector<std::string> served;
        for (const Components& components : audiences) {
            if (store.Latest(components) == release) served.push_back(Joined(components, "+"));
        }
        (*json)["releases"].push_back({{"version", release->Version()},
                                       {"sequence", release->Sequence()},
                                       {"published", Date(*release)},
                                       {"components", release->Components()},
                                       {"files", release->Files().size()},
                                       {"bytes", BytesOf(release->Files())},
                                       {"patch_bytes", BytesOf(release->Patches())},
                                       {"served_for", served}});
        PrintRelease(*release, served.empty() ? "-" : Joined(served, ", "));
    }
    for (const auto& [sequence, damaged] : store.Damaged()) {
        if (damaged.release) PrintRelease(*damaged.release, "nobody: damaged");
        Problem("release " + SequenceName(sequence) + " is damaged: " + damaged.reason);
        (*json)["damaged"].push_back({{"sequence", sequence}, {"reason", damaged.reason}});
    }
    return EXIT_DONE;
}

}  // namespace

ExitStatus List(const std::string& directory, Json* json) {
    std::string error;
    const std::unique_ptr<Store> store = Store::Open(directory, &error);
    return store ? List(*store, json) : Problem(error);
}

ExitStatus Withdraw(const std::string& directory, const std::string& version) {
    std::string error;
    const std::unique_ptr<StoreWriter> writer = StoreWriter::Open(directory, &error);
    if (!writer) return Problem(error);
    uint32_t found = 0;
    for (const auto& [sequence, damaged] : writer->Published().Damaged()) {
        const bool named = damaged.release && damaged.release->Version() == version;
        if (named || SequenceName(sequence) == version) found = sequence;
    }
    if (const auto release = writer->Published().Find(version)) found = release->Sequence();
    if (found == 0) return Problem(directory + ": there is no version " + version);
    if (!writer->Remove(found, &error)) return Problem(error);
    printf("withdrew %s\n", version.c_str());
    Json unused;
    return List(writer->Published(), &unused);
}

ExitStatus Check(const std::string& store, Json* json) {
    ProgressLine progress;
    const CheckReport report = CheckStore(store, &progress);
    progress.End();
    *json = {{"releases", report.releases},
             {"files", report.files},
             {"bytes", report.bytes},
             {"problems", report.problems},
             {"advice", report.advice}};
    for (const std::string& problem : report.problems) Problem(problem);
    for (const std::string& advice : report.advice) Problem(advice);
    printf("%zu releases, %zu files of %" PRIu64 " bytes, %zu problems\n", report.releases,
           report.files, report.bytes, report.problems.size());
    return report.problems.empty() ? EXIT_DONE : EXIT_PROBLEM;
}

ExitStatus Prune(const std::string& store, size_t keep) {
    std::string error;
    const std::unique_ptr<StoreWriter> writer = StoreWriter::Open(store, &error);
    if (!writer || !writer->RemoveLeftovers(&error)) return Problem(error);
    for (const auto& [sequence, damaged] : writer->Published().Damaged()) {
        Problem("warning: release " + SequenceName(sequence) +
                " is damaged and neither counted nor removed: " + damaged.reason);
    }

    const auto releases = writer->Published().Releases();
    const auto superseded = SupersededReleases(releases, keep);
    uint64_t bytes = 0;
    for (const auto& release : superseded) bytes += release->Bytes();
    ProgressLine progress;
    progress.Begin("removing", bytes);
    for (const auto& release : superseded) {
        progress.File(release->Version());
        if (!writer->Remove(release->Sequence(), &error)) {
            progress.End();
            return Problem(error);
        }
        progress.Print(stdout, "removed " + release->Version());
        progress.Done(release->Bytes());
    }
    progress.End();
    printf("%zu releases removed, %zu kept\n", superseded.size(),
           releases.size() - superseded.size());
    return EXIT_DONE;
}

ExitStatus Serve(const std::string& store, const ServerOptions& options) {
    std::string error;
    ServerLog log;
    gamelog = &log;
    const std::unique_ptr<Store> opened = Store::Open(store, &error);
    const auto server = opened ? UpdateServer::Open(opened.get(), options, &error) : nullptr;
    if (!server) return Problem(error);
    server->Run();
    return EXIT_DONE;
}
