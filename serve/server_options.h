// What the operator sets of a server.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "update/messages.h"

struct ServerOptions {
    std::string address = "0.0.0.0";
    int port = kUpdatePort;
    int slots = 32;                    // downloads at a time
    int perAddress = 100;              // clients of one address; 0 for no limit
    uint64_t clientRate = 0;           // bytes a second of each download; 0 for no limit
    uint64_t totalRate = 0;            // bytes a second of all downloads; 0 for no limit
    uint64_t minRate = 1000;           // bytes a second; a slower client loses its slot
    int drainSeconds = 30;             // for downloads to end after the first signal
    std::string motdFile;              // read anew for each client; empty for no message of the day
    std::string metrics;               // ADDRESS:PORT; empty for none
    std::vector<std::string> proxies;  // ADDRESS or ADDRESS/BITS; they send a PROXY header

    using Milliseconds = std::chrono::milliseconds;
    Milliseconds greetingLimit{30'000};  // from connecting to the version request
    Milliseconds readyLimit{60'000};     // from getting a slot to the download request
    Milliseconds rateWindow{60'000};     // over which minRate is an average
    Milliseconds ackLimit{60'000};       // without an acknowledgement
};
