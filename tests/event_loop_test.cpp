#include "net/event_loop.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <vector>

namespace {

using testing::ElementsAre;
using Action = std::function<void()>;

// One end of a connection whose other end has said something or not; writable at once.
class Source : public IO_Event {
public:
    explicit Source(uint32_t flags, bool readable = true) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == -1) abort();
        m_fd = ends[0];
        m_other = ends[1];
        SetFlags(flags);
        if (readable && write(m_other, "x", 1) != 1) abort();
    }
    ~Source() override {
        close(m_fd);
        close(m_other);
        if (onDestroyed) onDestroyed();
    }

    void OnReadable() override {
        char byte;
        if (read(m_fd, &byte, 1) == 1 && onReadable) onReadable();
    }
    void OnWritable() override {
        if (onWritable) onWritable();
    }

    Action onReadable, onWritable, onDestroyed;

private:
    int m_other;
};

class Timer : public Timer_Event {
public:
    Timer(EventLoop* loop, std::function<void(uint64_t)> action)
        : Timer_Event(loop), m_action(std::move(action)) {}
    void OnTimer(uint64_t now) override { m_action(now); }

private:
    std::function<void(uint64_t)> m_action;
};

class Poll : public Poll_Event {
public:
    Poll(EventLoop* loop, Action action) : Poll_Event(loop), m_action(std::move(action)) {
        Register();
    }
    void OnPoll() override { m_action(); }

private:
    Action m_action;
};

TEST(Timers, FireInOrderOfDueTimeThenOfArming) {
    EventLoop loop;
    std::vector<int> fired;
    std::vector<std::unique_ptr<Timer>> timers;
    const uint64_t now = EventLoop::Now();
    // The last is too old for the clock's range and waits for those within it.
    for (const uint64_t due : {now - 5, now - 9, now - 5, now + 60000, now - 3000000000}) {
        const int number = static_cast<int>(timers.size());
        timers.push_back(std::make_unique<Timer>(
            &loop, [&fired, number](uint64_t) { fired.push_back(number); }));
        timers.back()->ScheduleAt(due);
    }
    EXPECT_EQ(loop.Dispatch(0), 0);
    EXPECT_THAT(fired, ElementsAre(1, 0, 2));
    timers[3]->Cancel();
    timers[3]->Cancel();
    loop.Dispatch(0);
    EXPECT_THAT(fired, ElementsAre(1, 0, 2, 4));
}

TEST(Timers, ArmAndCancelFromInsideTimers) {
    EventLoop loop;
    int again = 0, later = 0, cancelled = 0;
    std::unique_ptr<Timer> doomed;
    doomed = std::make_unique<Timer>(&loop, [&](uint64_t) { doomed.reset(); });
    Timer third(&loop, [&](uint64_t) { ++cancelled; });
    Timer second(&loop, [&](uint64_t) {
        ++later;
        third.Cancel();
        second.Schedule(60000);
    });
    Timer first(&loop, [&](uint64_t now) {
        if (++again < 3) first.ScheduleAt(now);
    });
    const uint64_t due = EventLoop::Now();
    for (Timer* timer : {doomed.get(), &first, &second, &third}) timer->ScheduleAt(due);
    first.ScheduleAt(due);  // in place of the first arming
    loop.Dispatch(0);
    EXPECT_EQ(doomed, nullptr);
    EXPECT_EQ(again, 3);
    EXPECT_EQ(later, 1);
    EXPECT_EQ(cancelled, 0);
}

TEST(Dispatch, RunsPollsOnceAndSurvivesTheirRemoval) {
    EventLoop loop;
    std::string order;
    Poll oldest(&loop, [&] { order += 'a'; });
    Poll middle(&loop, [&] { order += 'b'; });
    Poll newest(&loop, [&] {
        order += 'c';
        middle.Unregister();  // the next one
        newest.Unregister();
    });
    EXPECT_EQ(loop.Dispatch(0), 0);
    EXPECT_EQ(order, "ca");
    loop.Dispatch(0);
    EXPECT_EQ(order, "caa");
}

TEST(Dispatch, ServesWritableBeforeReadableAndTheNewestFirst) {
    EventLoop loop;
    std::string order;
    Source older(IO_READ), newer(IO_READ | IO_WRITE), idle(0);
    older.onReadable = [&] { order += 'o'; };
    newer.onReadable = [&] { order += 'r'; };
    newer.onWritable = [&] {
        order += 'w';
        newer.SetFlags(IO_READ);
    };
    idle.onReadable = idle.onWritable = [&] { order += '!'; };
    for (Source* source : {&older, &newer, &idle}) loop.AddIO(source);
    EXPECT_EQ(loop.Dispatch(0), 3);
    EXPECT_EQ(order, "wro");
}

TEST(Dispatch, GoesOnWhileAHandlerKeepsWaitingToWrite) {
    EventLoop loop;
    Source source(IO_WRITE);
    int calls = 0;
    source.onWritable = [&] {
        if (++calls == 3) source.SetFlags(0);
    };
    loop.AddIO(&source);
    EXPECT_EQ(loop.Dispatch(0), 3);
    EXPECT_EQ(calls, 3);
}

TEST(Dispatch, DeliversNothingTwiceOrToTheRemoved) {
    EventLoop loop;
    std::string order;
    auto removed = std::make_unique<Source>(IO_READ | IO_WRITE);
    Source victim(IO_READ), twice(IO_READ), newest(IO_READ), late(IO_READ);
    const auto entry = loop.AddIO(removed.get());
    loop.AddIO(&twice);
    loop.AddIO(&victim);
    loop.AddIO(&victim);
    loop.AddIO(&newest);
    newest.onReadable = [&] {
        order += 'n';
        loop.RemoveFd(victim.m_fd);  // both entries
        loop.AddIO(&late);
    };
    twice.onReadable = [&] { order += 't'; };
    victim.onReadable = [&] { order += '!'; };
    late.onReadable = [&] { order += 'l'; };
    removed->onReadable = [&] { order += '!'; };
    removed->onWritable = [&] {
        order += 'w';
        loop.RemoveIO(entry);
        removed.reset();
    };
    loop.Dispatch(0);
    EXPECT_EQ(order, "ntwl");
}

TEST(Dispatch, NeverWatchesDescriptorsOutsideTheSets) {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = FD_SETSIZE + 8;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);

    EventLoop loop;
    Source watched(IO_READ), high(IO_READ | IO_WRITE), none(IO_READ | IO_WRITE);
    bool served = false;
    watched.onReadable = [&] { served = true; };
    high.onReadable = high.onWritable = none.onWritable = [] { ADD_FAILURE(); };
    const int highBefore = std::exchange(high.m_fd, dup2(high.m_fd, FD_SETSIZE));
    const int noneBefore = std::exchange(none.m_fd, -1);
    ASSERT_EQ(high.m_fd, FD_SETSIZE);
    loop.AddIO(&none);
    loop.AddIO(&high);
    EXPECT_EQ(loop.Dispatch(0), 0);
    EXPECT_EQ(loop.Dispatch(1), 0) << "nothing can be waited for";
    loop.AddIO(&watched);
    EXPECT_EQ(loop.Dispatch(0), 1);
    EXPECT_TRUE(served);
    close(highBefore);
    none.m_fd = noneBefore;
}

TEST(Dispatch, WaitsUntilATimerIsDueAndFiresItInTheNextPass) {
    EventLoop loop;
    Source silent(IO_READ, false);
    loop.AddIO(&silent);
    int fired = 0;
    Timer timer(&loop, [&](uint64_t) { ++fired; });
    const uint64_t start = EventLoop::Now();
    timer.Schedule(60);
    EXPECT_EQ(loop.Dispatch(1), 0);
    EXPECT_GE(EventLoop::Now(), start + 59);
    EXPECT_EQ(fired, 0);
    while (EventLoop::Now() < start + 60) {
    }
    loop.Dispatch(0);
    EXPECT_EQ(fired, 1);
}

TEST(Stop, LeavesTheRestOfAPassUnserved) {
    for (const int wait : {0, 1}) {
        EventLoop loop;
        std::string order;
        Source older(IO_READ), newer(IO_READ);
        older.onReadable = [&] { order += '!'; };
        newer.onReadable = [&] {
            order += 'n';
            loop.Stop(3);
        };
        loop.AddIO(&older);
        loop.AddIO(&newer);
        EXPECT_EQ(loop.Dispatch(wait), wait ? 0 : 2);
        EXPECT_EQ(order, "n");
        EXPECT_EQ(loop.Run(), 3) << "later runs end likewise";
    }
}

TEST(Run, EndsWhenNothingIsRegistered) {
    EventLoop loop;
    EXPECT_EQ(loop.Run(), 0);

    bool destroyed = false, fired = false;
    auto* dead = new Source(IO_READ);
    dead->onReadable = [&] { dead->m_dead = 1; };
    dead->onDestroyed = [&] { destroyed = true; };
    loop.AddIO(dead);
    EXPECT_EQ(loop.Run(), 0);
    EXPECT_TRUE(destroyed);

    Timer alone(&loop, [&](uint64_t) { fired = true; });
    alone.Schedule(20);
    EXPECT_EQ(loop.Run(), 0);
    EXPECT_TRUE(fired);
}

TEST(Run, IsStoppedByTimersAndPolls) {
    EventLoop timed, polled;
    Source silent(IO_READ, false), talking(IO_READ);
    timed.AddIO(&silent);
    Timer timer(&timed, [&](uint64_t) { timed.Stop(7); });
    timer.Schedule(20);
    EXPECT_EQ(timed.Run(), 7);

    polled.AddIO(&talking);
    Poll unreached(&polled, [] { ADD_FAILURE(); });
    Poll stopping(&polled, [&] { polled.Stop(-1); });
    EXPECT_EQ(polled.Run(), -1);
}

}  // namespace
