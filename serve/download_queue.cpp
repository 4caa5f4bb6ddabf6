#include "serve/download_queue.h"

#include <algorithm>
#include <numeric>

DownloadQueue::Ticket DownloadQueue::Join(Waiter* session) {
    const Ticket ticket = ++m_last;
    m_waiting.emplace(ticket, session);
    AdmitWaiting();
    if (m_waiting.contains(ticket)) session->TellPlace(Status(m_waiting.size() - 1, Rate()));
    return ticket;
}

void DownloadQueue::AdmitWaiting() {
    while (!m_closed && !m_waiting.empty() && m_downloading.size() < m_slots) {
        const auto [ticket, session] = *m_waiting.begin();
        m_downloading.insert(ticket);
        m_waiting.erase(ticket);
        if (ticket < m_roundTicket) --m_roundPlace;
        session->Admit();
    }
}

void DownloadQueue::Leave(Ticket ticket) {
    m_downloading.erase(ticket);
    if (m_waiting.erase(ticket) > 0 && ticket < m_roundTicket) --m_roundPlace;
    AdmitWaiting();
}

void DownloadQueue::CountDuration(std::chrono::milliseconds duration) {
    m_durations.push_back(duration);
    if (m_durations.size() > kRemembered) m_durations.pop_front();
}

void DownloadQueue::TellPlaces() {
    const uint16_t rate = Rate();
    auto next = m_waiting.lower_bound(m_roundTicket);
    for (size_t left = m_waiting.size() / kPartsInRound + 1; left > 0; --left, ++next) {
        if (next == m_waiting.end()) return;
        m_roundTicket = next->first + 1;
        next->second->TellPlace(Status(m_roundPlace++, rate));
    }
}

// The fields end at 65535; sessions further back are told that much.
QueueStatus DownloadQueue::Status(size_t place, uint16_t rate) const {
    const auto length = std::min<size_t>(m_waiting.size(), UINT16_MAX);
    return {false, static_cast<uint16_t>(std::min(place, length - 1)),
            static_cast<uint16_t>(length), rate};
}

uint16_t DownloadQueue::Rate() const {
    if (m_durations.empty()) return 0;
    const auto sum =
        std::accumulate(m_durations.begin(), m_durations.end(), std::chrono::milliseconds(0));
    // The clock shows no time for many small downloads.
    const uint64_t total = std::max<uint64_t>(static_cast<uint64_t>(sum.count()), 1);
    const uint64_t rate = m_slots * 100'000 * m_durations.size() / total;
    return static_cast<uint16_t>(std::clamp<uint64_t>(rate, 1, UINT16_MAX));
}
