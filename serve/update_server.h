// The update server: any number of clients, served from a store.
#ifndef HALCYRIX_SERVE_UPDATE_SERVER_H
#define HALCYRIX_SERVE_UPDATE_SERVER_H

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>

#include "serve/client_session.h"
#include "serve/download_queue.h"
#include "serve/event_tools.h"
#include "serve/metrics.h"
#include "store/store.h"

struct ServerOptions {
    std::string address = "0.0.0.0";
    int port = kUpdatePort;
    int slots = 32;           // downloads at a time
    int perAddress = 100;     // clients of one address; 0 for no limit
    uint64_t clientRate = 0;  // bytes in a second, for downloads; 0 for no limit
    uint64_t totalRate = 0;   // of all clients together; the same
    uint64_t minRate = 1000;  // who is slower loses the slot
    int drainSeconds = 30;    // for downloads to end after the first signal
    std::string motdFile;     // read anew for each client; empty for no message of the day
    std::string metrics;      // ADDRESS:PORT; empty for none

    Milliseconds greetingLimit{30'000};  // from connecting to the version request
    Milliseconds readyLimit{60'000};     // from getting a slot to the download request
    Milliseconds rateWindow{60'000};     // over which the lowest rate is an average
    Milliseconds ackLimit{60'000};       // without an acknowledgement
};

// Serves the store as the options say until SIGTERM or SIGINT. False, with the reason in `error`,
// when it could not begin. Raises the process's limit of descriptors, and changes its log and what
// signals do.
[[nodiscard]] bool Serve(Store* store, const ServerOptions& options, std::string* error);

// Owns its clients' sessions. The store must outlive it.
class UpdateServer {
public:
    // Null, with the reason in `error`, when it cannot listen or has no descriptors for its slots.
    static std::unique_ptr<UpdateServer> Open(Store* store, const ServerOptions& options,
                                              std::string* error);
    ~UpdateServer();

    // Until the first signal, and then until the downloads have ended, their time is up or a second
    // signal comes.
    void Run();

    // Takes over a descriptor, which is non-blocking.
    void Accept(evutil_socket_t fd, const sockaddr_in& peer);

    event_base* Base() const { return m_base.get(); }

    // For the sessions.

    const ServerOptions& Options() const { return m_options; }
    ServerCounts& Counts() { return m_counts; }

    // The newest release that holds all components, published ones of this moment included.
    std::shared_ptr<const Release> LatestRelease(const std::list<std::string>& components);
    std::shared_ptr<const Release> FindRelease(const std::string& version) const;

    // A file of the release is not as it was published.
    void ReportUnreadable(const Release& release);

    // The message of the day, cut at 64 KiB, with its final NUL.
    std::string MotdText();

    // The session waits for a slot, and is told so unless it gets one at once.
    DownloadQueue::Ticket Join(ClientSession* session);
    void LimitRate(bufferevent* connection);
    // The session's downloads have been sent. Ends it when the server is about to stop.
    void Finish(ClientSession* session, Clock::duration duration);
    // Destroys the session, which has ended.
    void Remove(ClientSession* session, Ending ending);
    // For the log, which gets one of these in a second and the number of the others.
    void Notice(const std::string& text);

private:
    UpdateServer(Store* store, const ServerOptions& options);

    bool Listen(std::string* error);
    void OnAcceptFailure();
    void RefreshStore();
    void OnTick();
    void OnSignal();
    void EndAll();
    void TellNotices();
    void TellPlaces();
    void AdmitWaiting();
    QueueStatus PlaceStatus(size_t place, uint16_t rate) const;

    Store* m_store;
    const ServerOptions m_options;
    ServerCounts m_counts;
    const std::function<std::string()> m_metricsText;
    Owned<event_base> m_base;
    Owned<ev_token_bucket_cfg> m_clientRate;
    Owned<bufferevent_rate_limit_group> m_totalRate;
    Owned<evhttp> m_metrics;
    Owned<evconnlistener> m_listener;
    Owned<event> m_tick;
    DownloadQueue m_queue;
    unsigned m_ticks = 0;
    bool m_stopping = false;
    std::string m_notice;
    size_t m_notices = 0;
    std::unordered_map<in_addr_t, int> m_perAddress;
    std::unordered_map<evutil_socket_t, ClientSession> m_sessions;
};

#endif
