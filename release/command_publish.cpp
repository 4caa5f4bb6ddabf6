#include <unistd.h>

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <memory>

#include "release/commands.h"
#include "store/publisher.h"

namespace {

// Shows the progress in one line of a terminal that is written over, and nothing elsewhere.
class ProgressLine : public PublishObserver {
public:
    void Warn(const std::string& text) override {
        Clear();
        fprintf(stderr, "halcyrix-release: warning: %s\n", text.c_str());
    }

    void Progress(const char* work, size_t number, size_t count, const std::string& name) override {
        const auto now = std::chrono::steady_clock::now();
        if (!m_isTerminal || (number < count && now - m_shown < std::chrono::milliseconds(100))) {
            return;
        }
        m_shown = now;
        Clear();
        fprintf(stderr, "%s %zu of %zu: %.50s", work, number, count, name.c_str());
        m_dirty = true;
    }

    void Clear() {
        if (m_dirty) fputs("\r\033[K", stderr);
        m_dirty = false;
    }

private:
    const bool m_isTerminal = isatty(STDERR_FILENO) != 0;
    bool m_dirty = false;
    std::chrono::steady_clock::time_point m_shown;
};

// "COMPONENT=DIR"; why it is none, else an empty string.
std::string ComponentSyntax(const std::string& argument) {
    return argument.find('=') == std::string::npos ? argument + " is not COMPONENT=DIR"
                                                   : std::string();
}

ExitStatus Publish(PublishRequest request, const std::vector<std::string>& components) {
    for (const std::string& component : components) {
        const size_t equals = component.find('=');
        request.components.push_back({component.substr(0, equals), component.substr(equals + 1)});
    }
    std::string error;
    ProgressLine progress;
    Publisher publisher(std::move(request), &progress);
    const bool published = publisher.Publish(&error);
    progress.Clear();
    if (!published) return Problem(error);
    const Manifest& manifest = publisher.Result();
    uint64_t bytes = 0;
    for (const ReleaseFile& file : manifest.files) bytes += file.length;
    printf("published %s: %zu files of %" PRIu64 " bytes, %zu patches\n", manifest.version.c_str(),
           manifest.files.size(), bytes, manifest.patches.size());
    return EXIT_DONE;
}

}  // namespace

void AddPublishCommand(CLI::App* app, ExitStatus* status) {
    const auto request = std::make_shared<PublishRequest>();
    const auto components = std::make_shared<std::vector<std::string>>();
    CLI::App* command = AddCommand(app, "publish", "Add a release to a store");
    command->add_option("STORE", request->store, "The store, made when there is none")->required();
    command->add_option("VERSION", request->version, "The version, a word not used before")
        ->required();
    command->add_option("COMPONENT=DIR", *components, "Each component and where its files are")
        ->required()
        ->check(ComponentSyntax);
    command
        ->add_option("--patches-from", request->patchesFrom,
                     "Make patches from the last N releases of a component")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command->callback([=] { *status = Publish(*request, *components); });
}
