// The event dispatcher: descriptors, timers and polls, served by passes over select().
#ifndef HALCYRIX_NET_EVENT_LOOP_H
#define HALCYRIX_NET_EVENT_LOOP_H

#include <sys/select.h>

#include <cstdint>
#include <list>
#include <map>

class EventLoop;

constexpr uint32_t IO_WRITE = 1;
constexpr uint32_t IO_READ = 2;

// A source of descriptor events. Who closes the descriptor clears the flags first, so that none are
// left of it. Flags that are set while m_fd is -1 wait for the next descriptor.
//
// An event must be removed from its dispatcher before it is destroyed.
class IO_Event {
public:
    IO_Event() = default;
    virtual ~IO_Event() = default;
    IO_Event(const IO_Event&) = delete;
    IO_Event& operator=(const IO_Event&) = delete;

    virtual void OnReadable() {}
    virtual void OnWritable() {}

    void SetFlags(uint32_t flags) {
        if (m_flags != flags) m_flags = flags;
    }

    uint32_t m_flags = 0;  // IO_READ and IO_WRITE: what to watch for
    uint32_t m_dead = 0;   // non-zero: the dispatcher deletes the event in its next pass
    int32_t m_fd = -1;     // -1 when there is none
};

// A timer, firing once for each arming. It belongs to the dispatcher that it was made with, which
// must outlive it, and cancels itself when it is destroyed.
class Timer_Event {
public:
    explicit Timer_Event(EventLoop* loop) : m_loop(loop) {}
    virtual ~Timer_Event() { Cancel(); }
    Timer_Event(const Timer_Event&) = delete;
    Timer_Event& operator=(const Timer_Event&) = delete;

    // `now` is the clock reading, in milliseconds, of the pass that fires the timer. May arm and
    // cancel timers, this one included.
    virtual void OnTimer(uint64_t now) = 0;

    // Arms the timer `delay` milliseconds from now, in place of an earlier arming.
    void Schedule(uint64_t delay);
    // The same for a moment on the scale of EventLoop::Now().
    void ScheduleAt(uint64_t due);
    void Cancel();

protected:
    std::multimap<uint64_t, Timer_Event*>::iterator m_entry{};  // meaningful while m_armed
    EventLoop* m_loop;
    uint8_t m_armed = 0;

    friend class EventLoop;
};

// Called once at the start of every pass while registered. Must be unregistered before it is
// destroyed.
class Poll_Event {
public:
    explicit Poll_Event(EventLoop* loop) : m_loop(loop) {}
    virtual ~Poll_Event() = default;
    Poll_Event(const Poll_Event&) = delete;
    Poll_Event& operator=(const Poll_Event&) = delete;

    virtual void OnPoll() = 0;

    void Register();
    void Unregister();

protected:
    EventLoop* m_loop;
    std::list<Poll_Event*>::iterator m_entry{};
};

// Serves its registrations on the thread that calls Dispatch() or Run(). Handlers may add, remove,
// arm and cancel, but must not enter the dispatcher again. It owns no event, except that it deletes
// one whose m_dead is set.
//
// Descriptors outside 0 ... FD_SETSIZE - 1 cannot be watched: such an event stays registered and is
// never ready. Nothing is reported or logged here.
class EventLoop {
public:
    using IO_Entry = std::list<IO_Event*>::iterator;
    using Poll_Entry = std::list<Poll_Event*>::iterator;

    EventLoop() = default;
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // Milliseconds since the epoch by the wall clock.
    static uint64_t Now();

    // Registers the event; the caller keeps the entry for RemoveIO(). An earlier registration of
    // the same event is not looked for.
    IO_Entry AddIO(IO_Event* event);
    void RemoveIO(IO_Entry entry);
    void RemoveFd(int fd);

    Poll_Entry AddPoll(Poll_Event* event);
    void RemovePoll(Poll_Entry entry);

    // One pass: polls, due timers, and every ready descriptor until select() finds none. With
    // `wait` 0 nothing is waited for; otherwise the pass lasts until a select() ends by the next
    // timer's due time. Returns how many ready descriptors select() reported, but 0 when the last
    // registration goes during the pass, or a waiting pass is stopped.
    int Dispatch(int wait);

    // Serves until Stop() or until nothing is registered; returns the exit code.
    int Run();

    // Ends Run(), or the pass under way, before the next descriptor event is served; later ones end
    // likewise. Timers that are due, and the polls of Dispatch(), are still served.
    void Stop(int exitCode);

    // The steps of a pass. Fires the due timers; returns the milliseconds until the next one, 0
    // when none is left.
    uint64_t RunTimers();
    // Deletes dead events and fills the sets; returns the highest live descriptor plus one.
    int BuildSets(fd_set* read, fd_set* write);
    // Serves what select() has left in the sets, and takes it out of them.
    void HandleSets(fd_set* read, fd_set* write);

private:
    friend class Timer_Event;

    // A pass of Run() heeds m_stop, one of Dispatch() does not.
    void RunPolls(bool heedStop);

    std::list<IO_Event*> m_io;  // newest first
    std::multimap<uint64_t, Timer_Event*> m_timers;
    std::list<Poll_Event*> m_polls;  // newest first
    Poll_Entry m_pollCursor = m_polls.end();
    uint8_t m_ioChanged = 0;
    uint32_t m_stop = 0;
    int32_t m_exitCode = 0;
};

#endif
