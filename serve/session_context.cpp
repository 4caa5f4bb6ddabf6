#include "serve/session_context.h"

#include <algorithm>

namespace {

constexpr int kRateTicks = 10;      // in a second
constexpr size_t kMinShare = 1400;  // of the total rate for one write: about a packet

// Limits writing alone. Null for no limit.
ev_token_bucket_cfg* WritingRate(uint64_t bytesPerSecond) {
    if (bytesPerSecond == 0) return nullptr;
    const auto rate = static_cast<size_t>(
        std::clamp<uint64_t>(bytesPerSecond / kRateTicks, 1, EV_RATE_LIMIT_MAX / 2));
    const timeval tick{0, 1'000'000 / kRateTicks};
    return ev_token_bucket_cfg_new(EV_RATE_LIMIT_MAX, EV_RATE_LIMIT_MAX, rate, 2 * rate, &tick);
}

bufferevent_rate_limit_group* TotalRate(event_base* base, uint64_t bytesPerSecond) {
    const Owned<ev_token_bucket_cfg> rate(WritingRate(bytesPerSecond));
    if (!rate) return nullptr;
    bufferevent_rate_limit_group* const group = bufferevent_rate_limit_group_new(base, rate.get());
    bufferevent_rate_limit_group_set_min_share(group, kMinShare);
    return group;
}

}  // namespace

SessionContext::SessionContext(Store* served, const ServerOptions& given)
    : store(served),
      options(given),
      base(event_base_new()),
      clientRate(WritingRate(given.clientRate)),
      totalRate(TotalRate(base.get(), given.totalRate)),
      queue(given.slots) {
    for (const std::string& range : given.proxies) proxies.push_back(ParseRange(range).value());
}

void SessionContext::RefreshStore() {
    store->Refresh();
    for (const std::string& news : store->TakeNews()) gamelog->Printf("%s\n", news.c_str());
}
