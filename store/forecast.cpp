#include "store/forecast.h"

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
