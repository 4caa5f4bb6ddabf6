// Who may download now, and who waits.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>

#include "update/messages.h"

// A session, as the queue sees it. Neither call may lead to one of the queue.
class Waiter {
public:
    virtual ~Waiter() = default;
    virtual void Admit() = 0;
    virtual void TellPlace(const QueueStatus& status) = 0;
};

// A fixed number of slots, and a line of sessions that wait for one, served in their order. Each
// call costs little, however long the line. A session must leave before it is destroyed.
class DownloadQueue {
public:
    // Identifies a session here; 0 for one that has not joined.
    using Ticket = uint64_t;

    explicit DownloadQueue(int slots) : m_slots(slots) {}

    // Puts the session at the end of the line. Admits it at once or tells it its place.
    Ticket Join(Waiter* session);

    // Takes the session out of its slot or out of the line, and admits the next. A session that is
    // in neither is no error.
    void Leave(Ticket ticket);

    // Admits nobody from now on.
    void Close() { m_closed = true; }
    bool IsClosed() const { return m_closed; }

    // Tells a part of the line their places, the front first. With kPartsInRound calls after each
    // StartRound() everybody is told, and no call takes long.
    static constexpr unsigned kPartsInRound = 20;
    void StartRound() { m_roundTicket = m_roundPlace = 0; }
    void TellPlaces();

    // Counts the duration of a complete download for the rate.
    void CountDuration(std::chrono::milliseconds duration);

    // Sessions served in 100 seconds, by the latest downloads; 0 before the first one.
    uint16_t Rate() const;

    size_t Downloading() const { return m_downloading.size(); }

private:
    static constexpr size_t kRemembered = 32;

    void AdmitWaiting();
    QueueStatus Status(size_t place, uint16_t rate) const;

    size_t m_slots;
    bool m_closed = false;
    Ticket m_last = 0;
    std::map<Ticket, Waiter*> m_waiting;
    std::set<Ticket> m_downloading;
    Ticket m_roundTicket = 0;                           // earlier ones have been told in this round
    size_t m_roundPlace = 0;                            // how many of those are still in the line
    std::deque<std::chrono::milliseconds> m_durations;  // of the latest downloads
};
