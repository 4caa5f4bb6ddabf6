// The updater without its window.
#ifndef HALCYRIX_TESTS_SUPPORT_HEADLESS_UPDATER_H
#define HALCYRIX_TESTS_SUPPORT_HEADLESS_UPDATER_H

#include <cstring>
#include <functional>
#include <optional>

#include "net/event_loop.h"
#include "update/update_client.h"

// One start of the program in the working directory: the updater's own session, then the game's. A
// server of the test's own can be on `loop`. The log must exist.
class HeadlessUpdater : public ProgressIndicator {
public:
    HeadlessUpdater() : client(&loop, this) {}

    // Returns the results of the two sessions; null for one that did not come to its end.
    struct Results {
        std::optional<int32_t> own, game;
    };
    Results Run() {
        client.Start(0, "linux64upd", nullptr);
        loop.Run();
        return m_results;
    }

    void SetProgress(int32_t, int32_t) override {}
    void SetStatus(const char* text) override {
        if (onStatus) onStatus(text);
        if (strcmp(text, "Connection failed") == 0) loop.Stop(0);
    }
    void Finished(int32_t result) override {
        if (m_results.own) {
            m_results.game = result;
            loop.Stop(0);
        } else {
            m_results.own = result;
            client.Start(1, "linux64", "common", nullptr);
        }
    }

    EventLoop loop;
    UpdateClient client;
    std::function<void(const char*)> onStatus;

private:
    Results m_results;
};

#endif
