#include "tests/support/sample_store.h"

std::string PublishSample(const std::string& version,
                          const std::vector<ComponentSource>& components, size_t patches_from,
                          RecordingObserver* observer) {
    RecordingObserver unheard;
    std::string error;
    Publisher publisher({"store", version, components, patches_from},
                        observer != nullptr ? observer : &unheard);
    if (publisher.Publish(&error)) return {};
    return error.empty() ? "(no reason)" : error;
}

std::unique_ptr<Store> OpenSample() {
    std::string error;
    return Store::Open("store", &error);
}
