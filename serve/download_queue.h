// Who may download now, and who waits.
#ifndef HALCYRIX_SERVE_DOWNLOAD_QUEUE_H
#define HALCYRIX_SERVE_DOWNLOAD_QUEUE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>

class ClientSession;

// A fixed number of slots, and a line of sessions that wait for one, served in their order. Knows
// the sessions by their address only. Each call costs little, however long the line.
class DownloadQueue {
public:
    // What stands for a session here; 0 for one that has not joined.
    using Ticket = uint64_t;

    explicit DownloadQueue(int slots) : m_slots(slots) {}

    // Puts the session at the end of the line.
    Ticket Join(ClientSession* session);

    // Gives a free slot to the first of the line and returns it; null when there is no slot or
    // nobody waits.
    ClientSession* Admit();

    // Takes the session out of its slot or out of the line; one that is in neither is no error.
    void Leave(Ticket ticket);

    // A download has come to its end, which counts for the rate.
    void CountDuration(std::chrono::milliseconds duration);

    size_t Waiting() const { return m_waiting.size(); }
    size_t Downloading() const { return m_downloading.size(); }

    // Goes through the line, which may change meanwhile: each call gives the next one and its
    // place, 0 for the first of the line, and null at the end.
    void StartRound();
    ClientSession* NextInRound(size_t* place);

    // How many of the line are served in 100 seconds, going by the latest downloads; 0 as long as
    // none is known.
    uint16_t Rate() const;

private:
    static constexpr size_t kRemembered = 32;

    size_t m_slots;
    Ticket m_last = 0;
    std::map<Ticket, ClientSession*> m_waiting;
    std::set<Ticket> m_downloading;
    Ticket m_roundTicket = 0;  // those of the line before it have been given
    size_t m_roundPlace = 0;   // how many of them are still in the line
    std::deque<std::chrono::milliseconds> m_durations;  // of the latest downloads
};

#endif
