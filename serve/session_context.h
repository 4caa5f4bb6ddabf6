// What the sessions of a server share.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "serve/addresses.h"
#include "serve/download_queue.h"
#include "serve/event_tools.h"
#include "serve/metrics.h"
#include "serve/server_log.h"
#include "serve/server_options.h"
#include "store/store.h"

class ClientSession;

// Outlives the sessions. The store must outlive it.
struct SessionContext {
    SessionContext(Store* served, const ServerOptions& given);

    // Takes up what has changed in the store, and logs it.
    void RefreshStore();

    Store* const store;
    const ServerOptions options;
    const Owned<event_base> base;
    const Owned<ev_token_bucket_cfg> clientRate;          // null for no limit
    const Owned<bufferevent_rate_limit_group> totalRate;  // the same
    ServerCounts counts;
    Notices notices;
    DownloadQueue queue;
    AddressCounts addresses;
    std::vector<AddressRange> proxies;
    std::function<void(ClientSession*)> destroy;  // for a session that has ended
};
