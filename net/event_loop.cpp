#include "net/event_loop.h"

#include <sys/time.h>

#include <algorithm>

namespace {

// Milliseconds. A timer overdue by more fires after all others.
constexpr uint64_t kOldestTimer = 2147483648;

// fd_set is a fixed array; a larger descriptor would be written past its end.
bool Watchable(int fd) { return fd >= 0 && fd < FD_SETSIZE; }

timeval* SelectTimeout(uint64_t milliseconds, timeval* timeout) {
    if (milliseconds == 0) return nullptr;
    timeout->tv_sec = static_cast<time_t>(milliseconds / 1000);
    timeout->tv_usec = static_cast<suseconds_t>((milliseconds % 1000) * 1000);
    return timeout;
}

// Clears the bit: a scan that starts again must not deliver the same readiness twice.
bool TakeReady(int fd, fd_set* set) {
    if (!Watchable(fd) || !FD_ISSET(fd, set)) return false;
    FD_CLR(fd, set);
    return true;
}

}  // namespace

void Timer_Event::Schedule(uint64_t delay) { ScheduleAt(EventLoop::Now() + delay); }

void Timer_Event::ScheduleAt(uint64_t due) {
    Cancel();
    m_entry = m_loop->m_timers.emplace(due, this);
    m_armed = 1;
}

void Timer_Event::Cancel() {
    if (m_armed) m_loop->m_timers.erase(m_entry);
    m_armed = 0;
}

void Poll_Event::Register() { m_entry = m_loop->AddPoll(this); }

void Poll_Event::Unregister() { m_loop->RemovePoll(m_entry); }

uint64_t EventLoop::Now() {
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

EventLoop::IO_Entry EventLoop::AddIO(IO_Event* event) {
    event->m_dead = 0;
    m_ioChanged = 1;
    return m_io.insert(m_io.begin(), event);
}

void EventLoop::RemoveIO(IO_Entry entry) {
    m_ioChanged = 1;
    m_io.erase(entry);
}

void EventLoop::RemoveFd(int fd) {
    const auto removed = m_io.remove_if([fd](const IO_Event* event) { return event->m_fd == fd; });
    if (removed > 0) m_ioChanged = 1;
}

EventLoop::Poll_Entry EventLoop::AddPoll(Poll_Event* event) {
    return m_polls.insert(m_polls.begin(), event);
}

void EventLoop::RemovePoll(Poll_Entry entry) {
    if (m_pollCursor == entry) ++m_pollCursor;
    m_polls.erase(entry);
}

void EventLoop::Stop(int exitCode) {
    m_stop = 1;
    m_exitCode = exitCode;
}

uint64_t EventLoop::RunTimers() {
    const uint64_t now = Now();
    if (m_timers.empty()) return 0;
    auto next = m_timers.upper_bound(now - kOldestTimer);
    for (;;) {
        if (next == m_timers.end()) next = m_timers.begin();
        const auto delta = static_cast<int64_t>(next->first - now);
        if (delta > 0) return static_cast<uint64_t>(delta);

        // Erased after the call, since OnTimer() may arm its own timer again.
        const auto fired = next;
        fired->second->m_armed = 0;
        fired->second->OnTimer(now);
        next = std::next(fired);
        m_timers.erase(fired);
        if (m_timers.empty()) return 0;
    }
}

int EventLoop::BuildSets(fd_set* read, fd_set* write) {
    FD_ZERO(read);
    FD_ZERO(write);
    int max = -1;
    for (auto entry = m_io.begin(); entry != m_io.end();) {
        IO_Event* event = *entry;
        if (event->m_dead) {
            delete event;
            entry = m_io.erase(entry);
            continue;
        }
        ++entry;
        if (!Watchable(event->m_fd)) continue;
        if (event->m_flags & IO_WRITE) FD_SET(event->m_fd, write);
        if (event->m_flags & IO_READ) FD_SET(event->m_fd, read);
        max = std::max(max, event->m_fd);
    }
    return max + 1;
}

void EventLoop::HandleSets(fd_set* read, fd_set* write) {
    m_ioChanged = 0;
    for (auto entry = m_io.begin(); entry != m_io.end() && !m_stop;) {
        IO_Event* event = *entry;
        if ((event->m_flags & IO_WRITE) && TakeReady(event->m_fd, write)) event->OnWritable();
        if (!m_ioChanged && (event->m_flags & IO_READ) && TakeReady(event->m_fd, read)) {
            event->OnReadable();
        }
        if (m_ioChanged) {
            m_ioChanged = 0;
            entry = m_io.begin();
        } else {
            ++entry;
        }
    }
}

void EventLoop::RunPolls(bool heedStop) {
    m_pollCursor = m_polls.begin();
    while (m_pollCursor != m_polls.end() && !(heedStop && m_stop)) {
        Poll_Event* poll = *m_pollCursor++;
        poll->OnPoll();
    }
}

int EventLoop::Dispatch(int wait) {
    RunPolls(false);
    int total = 0;
    for (;;) {
        const uint64_t untilTimer = RunTimers();
        timeval timeout{};
        timeval* limit = &timeout;
        if (wait) {
            if (m_stop) return 0;
            limit = SelectTimeout(untilTimer, &timeout);
        }
        fd_set read, write;
        const int count = BuildSets(&read, &write);
        if (count < 1) return 0;
        const int ready = select(count, &read, &write, nullptr, limit);
        if (ready <= 0) return total;
        total += ready;
        HandleSets(&read, &write);
        // The handlers no longer run, so select() would report the same readiness forever.
        if (m_stop && !wait) return total;
    }
}

int EventLoop::Run() {
    while (!m_stop) {
        const uint64_t untilTimer = RunTimers();
        if ((m_io.empty() && m_timers.empty()) || m_stop) return m_exitCode;
        timeval timeout;
        timeval* limit = SelectTimeout(untilTimer, &timeout);
        fd_set read, write;
        const int count = BuildSets(&read, &write);
        // BuildSets() may have deleted the last event; select() would then wait forever.
        if (m_io.empty() && m_timers.empty()) return m_exitCode;
        if (select(count, &read, &write, nullptr, limit) != -1) HandleSets(&read, &write);
        RunPolls(true);
    }
    return m_exitCode;
}
