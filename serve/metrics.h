// What a server tells its operators about itself.
#ifndef HALCYRIX_SERVE_METRICS_H
#define HALCYRIX_SERVE_METRICS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "serve/event_tools.h"
#include "store/store.h"

// Where a session stands.
enum ClientState {
    CONNECTED,    // nothing has been said
    GREETED,      // components are being named; the version request comes next
    LISTING,      // the file list is being sent
    NEGOTIATING,  // the client checks its files and asks for some
    WAITING,      // for a slot
    READY,        // has a slot; the download start comes next
    DOWNLOADING,
    SERVED,  // everything has been sent; the client hangs up next
    kClientStates,
};

// How a session has ended, if it has.
enum Ending {
    GOES_ON,
    COMPLETED,
    BROKE_OFF,
    BROKE_PROTOCOL,
    TOO_SLOW,
    VANISHED,
    NOT_PUBLISHED,
    UNREADABLE,
    LET_GO,
    NEVER_GREETED,
    REFUSED,
    OVER_SHARE,
    kEndings,
};

// For the log.
const char* EndingText(Ending ending);

struct ServerCounts {
    void CountWait(Clock::duration wait);

    // Upper ends, in seconds.
    static constexpr std::array<int, 7> kWaitBuckets = {1, 10, 60, 300, 900, 1800, 3600};

    // Of this moment.
    std::array<uint64_t, kClientStates> sessions{};
    uint64_t sessionLimit = 0;
    uint64_t slots = 0;

    // Since the server started.
    std::array<uint64_t, kEndings> ended{};
    uint64_t sentBytes = 0;
    uint64_t readErrors = 0;  // of the server's own files
    uint64_t waits = 0;       // that ended with a slot
    double waitSeconds = 0;   // of them together
    std::array<uint64_t, kWaitBuckets.size()> waitBuckets{};
};

// In the text format of Prometheus.
std::string FormatMetrics(const ServerCounts& counts, const Store& store);

// Answers HTTP requests for /metrics with what `text` returns. `address` is ADDRESS:PORT; null,
// with the reason in `error`, when it cannot be listened on.
Owned<evhttp> ServeMetrics(event_base* base, const std::string& address,
                           const std::function<std::string()>* text, std::string* error);

#endif
