#include "net/event_loop.h"

#include <sys/eventfd.h>

namespace {

using Handler = std::function<void()>;

void Unexpected() { ADD_FAILURE(); }

// Registered when it is made: always writable, and readable once.
struct Source : IO_Event {
    Source(EventLoop* loop, uint32_t flags, Handler handler) : onReadable(std::move(handler)) {
        m_fd = eventfd(1, 0);
        SetFlags(flags);
        entry = loop->AddIO(this);
    }
    ~Source() override { close(m_fd); }
    void OnReadable() override { eventfd_read(m_fd, &count) == 0 ? onReadable() : Unexpected(); }
    void OnWritable() override { onWritable(); }

    EventLoop::IO_Entry entry;
    eventfd_t count;
    Handler onReadable, onWritable = Unexpected;
};

struct Timer : Timer_Event {
    Timer(EventLoop* loop, Handler handler) : Timer_Event(loop), call(std::move(handler)) {}
    void OnTimer(uint64_t) override { call(); }

    Handler call;
};

class Dispatcher : public testing::Test {
protected:
    Handler Note(char event) {
        return [this, event] { order += event; };
    }

    EventLoop loop;
    std::string order;  // of the events
};

TEST_F(Dispatcher, FiresTimersInOrderOfDueTimeThenOfArming) {
    std::list<Timer> timers;
    const uint64_t now = EventLoop::Now();
    // The last is so old that those of the present come first.
    for (const uint64_t due : {now - 5, now - 9, now - 5, now + 60000, now - 3000000000}) {
        timers.emplace_back(&loop, Note(static_cast<char>('0' + timers.size())));
        timers.back().ScheduleAt(due);
    }
    EXPECT_NEAR(static_cast<double>(loop.RunTimers()), 59000, 1000);
    std::next(timers.begin(), 3)->Cancel();
    EXPECT_EQ(loop.RunTimers(), 0u);
    EXPECT_EQ(order, "1024");
}

TEST_F(Dispatcher, LetsTimersArmCancelAndDestroyTimers) {
    std::unique_ptr<Timer> doomed;
    doomed = std::make_unique<Timer>(&loop, [&] { doomed.reset(); });
    Timer cancelled(&loop, Unexpected), cancelling(&loop, [&] { cancelled.Cancel(); });
    Timer again(&loop, [&] {
        if ((order += 'a').size() < 3) again.ScheduleAt(1);
    });
    // The second arming replaces the other.
    for (Timer* timer : {&again, doomed.get(), &again, &cancelling, &cancelled}) {
        timer->ScheduleAt(1);
    }
    loop.Dispatch(0);
    EXPECT_EQ(doomed, nullptr);
    EXPECT_EQ(order, "aaa");
}

TEST_F(Dispatcher, DeliversWritableFirstAndNothingTwiceOrToTheRemovedOrOutsideTheSets) {
    Source byEntry(&loop, IO_READ | IO_WRITE, Unexpected);
    byEntry.onWritable = [&] { order += 'e', loop.RemoveIO(byEntry.entry); };
    Source byFd(&loop, IO_READ | IO_WRITE, Unexpected);
    byFd.onWritable = [&] { order += 'f', loop.RemoveFd(byFd.m_fd); };
    Source writer(&loop, IO_READ | IO_WRITE, Note('r')), victim(&loop, IO_READ, Unexpected);
    writer.onWritable = [&] {
        if ((order += 'w') == "wrfelww") writer.SetFlags(IO_READ);
    };
    victim.m_dead = 1;  // until it is added
    loop.AddIO(&victim);
    std::unique_ptr<Source> late;
    Source newest(&loop, IO_READ, [&] {
        loop.RemoveFd(victim.m_fd);  // both entries
        late = std::make_unique<Source>(&loop, IO_READ, Note('l'));
    });
    const rlimit limit{FD_SETSIZE + 8, FD_SETSIZE + 8};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    Source high(&loop, IO_READ | IO_WRITE, Unexpected), none(&loop, IO_READ, Unexpected);
    close(std::exchange(high.m_fd, dup2(high.m_fd, FD_SETSIZE)));
    close(std::exchange(none.m_fd, -1));
    EXPECT_EQ(loop.Dispatch(0), 8 + 2 + 1);
    EXPECT_EQ(order, "wrfelww");
}

TEST_F(Dispatcher, WaitsUntilATimerIsDueAndRunsWhileAnythingIsRegistered) {
    EXPECT_EQ(loop.Run(), 0);
    Source* dead = new Source(&loop, IO_READ, [&dead] { dead->m_dead = 1; });
    const int fd = dead->m_fd;
    EXPECT_EQ(loop.Run(), 0);
    EXPECT_EQ(close(fd), -1) << "the dispatcher has deleted it";
    Timer timer(&loop, Note('t'));
    timer.Schedule(20);
    EXPECT_EQ(loop.Run(), 0);
    Source source(&loop, IO_READ, Note('r'));
    const uint64_t start = EventLoop::Now();
    timer.Schedule(60);
    EXPECT_EQ(loop.Dispatch(1), 1);
    EXPECT_GE(EventLoop::Now(), start + 59);
    EXPECT_EQ(order, "tr") << "the next pass fires it";
}

}  // namespace
