// One start of the updater without its window, in the test's own process and working directory.
#pragma once

#include <cstring>

#include "net/event_loop.h"
#include "tests/support/program.h"
#include "tests/support/recorders.h"
#include "update/update_client.h"

struct Session {
    Session() {
        progress.onFinished = [this](int32_t) { loop.Stop(0); };
        progress.onStatus = [this](const char* text) {
            if (strcmp(text, "Connection failed") == 0) loop.Stop(0);
        };
    }

    int StartGame() { return client.Start(1, "linux64", "common", nullptr); }

    // Runs the session that was started to its end. Returns its result, -2 when no server could be
    // reached. The dispatcher is used up then.
    int32_t Run() {
        Awaiting("the end of a session");
        loop.Run();
        return progress.results.empty() ? -2 : progress.results.back();
    }

    int32_t RunGame() { return StartGame() == 1 ? Run() : -3; }

    EventLoop loop;
    RecordingLog log;
    RecordingProgress progress;
    UpdateClient client{&loop, &progress};
};
