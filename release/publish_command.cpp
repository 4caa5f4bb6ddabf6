#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "release/commands.h"
#include "release/progress_line.h"

namespace {

// An update from one version to another, of the components that both have.
struct UpdateForecast {
    bool sharesComponents = false;  // if not, no player updates from the one to the other
    size_t changed = 0;
    size_t added = 0;
    size_t removed = 0;         // these files stay on the player's disk
    uint64_t wholeBytes = 0;    // of the changed and added files
    uint64_t patchedBytes = 0;  // the same, but of the patch where there is one
};

UpdateForecast ForecastUpdate(const Release& from, const Release& to) {
    UpdateForecast forecast;
    for (const std::string& component : to.Components()) {
        if (!from.HasComponent(component)) continue;
        forecast.sharesComponents = true;
        for (const ReleaseFile& file : to.Files(component)) {
            const ReleaseFile* old = from.FindFile(file.name);
            if (old != nullptr && file.HasContentsOf(*old)) continue;
            ++(old == nullptr ? forecast.added : forecast.changed);
            const ReleasePatch* patch = to.FindPatch(file.name, from.Version());
            forecast.wholeBytes += file.length;
            forecast.patchedBytes += patch == nullptr ? file.length : patch->length;
        }
        for (const ReleaseFile& old : from.Files(component)) {
            if (to.FindFile(old.name) == nullptr) ++forecast.removed;
        }
    }
    return forecast;
}

// "1,234,567"
std::string Grouped(uint64_t number) {
    std::string text = std::to_string(number);
    for (size_t end = text.size(); end > 3; end -= 3) text.insert(end - 3, ",");
    return text;
}

// How long as many questions take that each wait for the answer to the one before.
std::string TimeOf(size_t questions, double round_trip) {
    const double seconds = static_cast<double>(questions) * round_trip;
    char text[32];
    snprintf(text, sizeof text, "%.1f %s", seconds < 60 ? seconds : seconds / 60,
             seconds < 60 ? "seconds" : "minutes");
    return text;
}

void PrintForecast(const PreparedRelease& made, Json* json) {
    const Release& release = *made.release;
    auto earlier = made.writer->Published().Releases();
    std::ranges::reverse(earlier);
    for (const auto& from : earlier) {
        const UpdateForecast update = ForecastUpdate(*from, release);
        if (!update.sharesComponents) continue;
        (*json)["updates"].push_back({{"from", from->Version()},
                                      {"changed", update.changed},
                                      {"added", update.added},
                                      {"removed", update.removed},
                                      {"whole_bytes", update.wholeBytes},
                                      {"patched_bytes", update.patchedBytes}});
        printf("from %s: %s files changed, %s added, %s removed; %s bytes whole, %s with patches\n",
               from->Version().c_str(), Grouped(update.changed).c_str(),
               Grouped(update.added).c_str(), Grouped(update.removed).c_str(),
               Grouped(update.wholeBytes).c_str(), Grouped(update.patchedBytes).c_str());
    }
    const size_t files = release.Files().size();
    printf(
        "first installation: %s bytes; it asks for each file by itself, %s files: %s at 50 ms "
        "before the first byte\n",
        Grouped(BytesOf(release.Files())).c_str(), Grouped(files).c_str(),
        TimeOf(files, 0.05).c_str());
    printf("takes %s bytes of the disk\n", Grouped(made.diskBytes).c_str());
}

}  // namespace

ExitStatus Publish(const PublishRequest& request, bool dry_run, Json* json) {
    ProgressLine progress;
    PreparedRelease made;
    std::vector<std::string> problems;
    const bool prepared = PrepareRelease(request, &progress, &made, &problems);
    progress.End();
    for (const std::string& problem : problems) Problem(problem);
    *json = {{"published", false}, {"problems", problems}};
    if (!prepared) return EXIT_PROBLEM;
    const Release& release = *made.release;
    json->update({{"version", release.Version()},
                  {"files", release.Files().size()},
                  {"bytes", BytesOf(release.Files())},
                  {"patches", release.Patches().size()},
                  {"disk_bytes", made.diskBytes},
                  {"updates", Json::array()}});
    PrintForecast(made, json);
    if (dry_run) {
        printf("not published: this was a dry run\n");
        return EXIT_DONE;
    }
    std::string error;
    if (!made.Commit(&error)) return Problem(error);
    (*json)["published"] = true;
    printf("published %s: %zu files of %" PRIu64 " bytes, %zu patches\n", release.Version().c_str(),
           release.Files().size(), BytesOf(release.Files()), release.Patches().size());
    return EXIT_DONE;
}
