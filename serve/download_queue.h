// Who may download now, and who waits.
#ifndef HALCYRIX_SERVE_DOWNLOAD_QUEUE_H
#define HALCYRIX_SERVE_DOWNLOAD_QUEUE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <map>

class ClientSession;

// A fixed number of slots, and a line of sessions that wait for one, served in their order. Knows
// the sessions by their address only. Times are milliseconds.
class DownloadQueue {
public:
    explicit DownloadQueue(int slots) : m_slots(slots) {}

    // Puts the session at the end of the line.
    void Join(ClientSession* session);

    // Gives a free slot to the first of the line and returns it; null when there is no slot or
    // nobody waits.
    ClientSession* Admit(uint64_t now);

    // Takes the session out of its slot or out of the line; one that is in neither is no error. A
    // download that came to its end counts for the rate.
    void Leave(ClientSession* session, uint64_t now, bool completed);

    const std::list<ClientSession*>& Waiting() const { return m_waiting; }
    int Downloading() const { return static_cast<int>(m_downloading.size()); }

    // How many of the line are served in 100 seconds, going by the latest downloads; 0 as long as
    // none is known.
    uint16_t Rate() const;

private:
    static constexpr size_t kRemembered = 32;

    int m_slots;
    std::list<ClientSession*> m_waiting;
    std::map<ClientSession*, uint64_t> m_downloading;  // by when they got their slot
    std::deque<uint64_t> m_durations;                  // of the latest downloads
};

#endif
