#include "serve/download_queue.h"

#include <algorithm>
#include <numeric>

void DownloadQueue::Join(ClientSession* session) {
    m_waiting.push_back(session);
}

ClientSession* DownloadQueue::Admit(uint64_t now) {
    if (m_waiting.empty() || Downloading() >= m_slots) return nullptr;
    ClientSession* session = m_waiting.front();
    m_waiting.pop_front();
    m_downloading.emplace(session, now);
    return session;
}

void DownloadQueue::Leave(ClientSession* session, uint64_t now, bool completed) {
    m_waiting.remove(session);
    const auto slot = m_downloading.find(session);
    if (slot == m_downloading.end()) return;
    if (completed) {
        m_durations.push_back(now - std::min(now, slot->second));
        if (m_durations.size() > kRemembered) m_durations.pop_front();
    }
    m_downloading.erase(slot);
}

uint16_t DownloadQueue::Rate() const {
    if (m_durations.empty()) return 0;
    const uint64_t sum = std::accumulate(m_durations.begin(), m_durations.end(), uint64_t{0});
    const uint64_t average = std::max<uint64_t>(sum / m_durations.size(), 1);
    const uint64_t rate = static_cast<uint64_t>(m_slots) * 100'000 / average;
    return static_cast<uint16_t>(std::clamp<uint64_t>(rate, 1, UINT16_MAX));
}
