// The event dispatcher: descriptors, timers and polls, served by passes over select().
#pragma once

#include <sys/select.h>

#include <cstdint>
#include <list>
#include <map>

class EventLoop;

constexpr uint32_t IO_WRITE = 1;
constexpr uint32_t IO_READ = 2;

// A source of descriptor events. Clear the flags before closing the descriptor. Flags set while
// m_fd is -1 apply to the next descriptor.
//
// Must be removed from its dispatcher before it is destroyed.
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

// A timer that fires once for each arming. The dispatcher must outlive it. The destructor cancels
// it.
class Timer_Event {
public:
    explicit Timer_Event(EventLoop* loop) : m_loop(loop) {}
    virtual ~Timer_Event() { Cancel(); }
    Timer_Event(const Timer_Event&) = delete;
    Timer_Event& operator=(const Timer_Event&) = delete;

    // `now` is the time of the pass on the scale of EventLoop::Now(). May arm and cancel timers,
    // also this one.
    virtual void OnTimer(uint64_t now) = 0;

    // Arms the timer `delay` milliseconds from now. Replaces an earlier arming.
    void Schedule(uint64_t delay);
    // `due` is on the scale of EventLoop::Now().
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

// Calls handlers on the thread that calls Dispatch() or Run(). Handlers may add, remove, arm and
// cancel, but must not call Dispatch() or Run(). Owns no event, but deletes one whose m_dead is
// set.
//
// A descriptor outside 0 ... FD_SETSIZE - 1 is never ready. Logs nothing.
class EventLoop {
public:
    using IO_Entry = std::list<IO_Event*>::iterator;
    using Poll_Entry = std::list<Poll_Event*>::iterator;

    EventLoop() = default;
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // Milliseconds since the epoch by the wall clock.
    static uint64_t Now();

    // Registers the event and returns the entry for RemoveIO(). A second call for the same event
    // adds a second entry.
    IO_Entry AddIO(IO_Event* event);
    void RemoveIO(IO_Entry entry);
    void RemoveFd(int fd);

    Poll_Entry AddPoll(Poll_Event* event);
    void RemovePoll(Poll_Entry entry);

    // One pass: runs polls, due timers and ready descriptors until select() finds none. With `wait`
    // 0 select() only polls; otherwise it waits until the next timer is due. Returns the number of
    // ready descriptors reported; 0 when the last registration was removed during the pass or a
    // waiting pass was stopped.
    int Dispatch(int wait);

    // Runs until Stop() or until nothing is registered. Returns the exit code.
    int Run();

    // Ends Run() or Dispatch() before the next descriptor event, now and in later calls. Due timers
    // and the polls of Dispatch() still run.
    void Stop(int exitCode);

    // The steps of a pass. Fires the due timers. Returns the milliseconds until the next one, 0 for
    // none.
    uint64_t RunTimers();
    // Deletes dead events and fills the sets. Returns the highest live descriptor plus one.
    int BuildSets(fd_set* read, fd_set* write);
    // Calls the handlers of the descriptors in the sets and removes these from the sets.
    void HandleSets(fd_set* read, fd_set* write);

private:
    friend class Timer_Event;

    // Run() stops its polls when m_stop is set, Dispatch() does not.
    void RunPolls(bool heedStop);

    std::list<IO_Event*> m_io;  // newest first
    std::multimap<uint64_t, Timer_Event*> m_timers;
    std::list<Poll_Event*> m_polls;  // newest first
    Poll_Entry m_pollCursor = m_polls.end();
    uint8_t m_ioChanged = 0;
    uint32_t m_stop = 0;
    int32_t m_exitCode = 0;
};
