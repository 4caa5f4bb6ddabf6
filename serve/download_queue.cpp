#include "serve/download_queue.h"

#include <algorithm>
#include <numeric>

DownloadQueue::Ticket DownloadQueue::Join(ClientSession* session) {
    m_waiting.emplace(++m_last, session);
    return m_last;
}

ClientSession* DownloadQueue::Admit() {
    if (m_waiting.empty() || m_downloading.size() >= m_slots) return nullptr;
    const auto [ticket, session] = *m_waiting.begin();
    Leave(ticket);
    m_downloading.insert(ticket);
    return session;
}

void DownloadQueue::Leave(Ticket ticket) {
    m_downloading.erase(ticket);
    if (m_waiting.erase(ticket) > 0 && ticket < m_roundTicket) --m_roundPlace;
}

void DownloadQueue::CountDuration(std::chrono::milliseconds duration) {
    m_durations.push_back(duration);
    if (m_durations.size() > kRemembered) m_durations.pop_front();
}

void DownloadQueue::StartRound() {
    m_roundTicket = 0;
    m_roundPlace = 0;
}

ClientSession* DownloadQueue::NextInRound(size_t* place) {
    const auto next = m_waiting.lower_bound(m_roundTicket);
    if (next == m_waiting.end()) return nullptr;
    m_roundTicket = next->first + 1;
    *place = m_roundPlace++;
    return next->second;
}

uint16_t DownloadQueue::Rate() const {
    if (m_durations.empty()) return 0;
    const auto sum =
        std::accumulate(m_durations.begin(), m_durations.end(), std::chrono::milliseconds(0));
    // Many downloads take no time that shows.
    const uint64_t total = std::max<uint64_t>(static_cast<uint64_t>(sum.count()), 1);
    const uint64_t rate = m_slots * 100'000 * m_durations.size() / total;
    return static_cast<uint16_t>(std::clamp<uint64_t>(rate, 1, UINT16_MAX));
}
