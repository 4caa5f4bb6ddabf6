#include "tests/support/sample_store.h"

std::string PublishSample(const std::string& version,
                          const std::vector<ComponentSource>& components, size_t patches_from,
                          RecordingObserver* observer) {
    RecordingObserver unheard;
    PublishRequest request{"store", version, components, patches_from};
    request.newComponents = true;
    Publisher publisher(request, observer != nullptr ? observer : &unheard);
    std::vector<std::string> problems;
    std::string error;
    if (publisher.Prepare(&problems) && publisher.Commit(&error)) return {};
    for (const std::string& problem : problems) error += problem + "\n";
    return error.empty() ? "(no reason)" : error;
}

std::unique_ptr<Store> OpenSample() {
    std::string error;
    return Store::Open("store", &error);
}
