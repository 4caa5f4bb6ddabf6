#include "store/forecast.h"

#include <algorithm>

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
        const auto before = from.Files(component);
        forecast.removed += static_cast<size_t>(std::count_if(
            before.begin(), before.end(),
            [&to](const ReleaseFile& file) { return to.FindFile(file.name) == nullptr; }));
    }
    return forecast;
}
