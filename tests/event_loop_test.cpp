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

// One end of a connection; always writable, and readable once when the other end has spoken.
struct Source : IO_Event {
    explicit Source(uint32_t flags, bool readable = true) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == -1) abort();
        if (readable && write(ends[1], "x", 1) != 1) abort();
        m_fd = ends[0];
        other = ends[1];
        SetFlags(flags);
    }
    ~Source() override {
        close(m_fd);
        close(other);
    }
    void OnReadable() override {
        char byte;
        if (read(m_fd, &byte, 1) == 1) onReadable();
    }
    void OnWritable() override { onWritable(); }

    int other;
    std::function<void()> onReadable = [] { ADD_FAILURE(); }, onWritable = onReadable;
};

struct Timer : Timer_Event {
    Timer(EventLoop* loop, std::function<void(uint64_t)> fire)
        : Timer_Event(loop), onTimer(std::move(fire)) {}
    void OnTimer(uint64_t now) override { onTimer(now); }

    std::function<void(uint64_t)> onTimer;
};

struct Poll : Poll_Event {
    Poll(EventLoop* loop, std::function<void()> poll) : Poll_Event(loop), onPoll(std::move(poll)) {
        Register();
    }
    void OnPoll() override { onPoll(); }

    std::function<void()> onPoll;
};

TEST(Timers, FireInOrderOfDueTimeThenOfArming) {
    EventLoop loop;
    std::vector<int> fired;
    std::vector<std::unique_ptr<Timer>> timers;
    const uint64_t now = EventLoop::Now();
    // The last is so old that those of the present come first.
    for (const uint64_t due : {now - 5, now - 9, now - 5, now + 60000, now - 3000000000}) {
        const int number = static_cast<int>(timers.size());
        timers.push_back(
            std::make_unique<Timer>(&loop, [&fired, number](auto) { fired.push_back(number); }));
        timers.back()->ScheduleAt(due);
    }
    EXPECT_EQ(loop.Dispatch(0), 0);
    EXPECT_THAT(fired, ElementsAre(1, 0, 2));
    timers[3]->Cancel();
    loop.Dispatch(0);
    EXPECT_THAT(fired, ElementsAre(1, 0, 2, 4));
}

TEST(Timers, MayArmCancelAndDestroyTimersWhenTheyFire) {
    EventLoop loop;
    std::string order;
    std::unique_ptr<Timer> doomed;
    doomed = std::make_unique<Timer>(&loop, [&](auto) { doomed.reset(); });
    Timer third(&loop, [&](auto) { ADD_FAILURE(); });
    Timer second(&loop, [&](auto) {
        order += '2';
        third.Cancel();
        second.Schedule(60000);
    });
    Timer first(&loop, [&](uint64_t now) {
        order += '1';
        if (order.size() < 4) first.ScheduleAt(now);
    });
    const uint64_t due = EventLoop::Now();
    for (Timer* timer : {&first, doomed.get(), &first, &second, &third}) timer->ScheduleAt(due);
    loop.Dispatch(0);
    EXPECT_EQ(doomed, nullptr);
    EXPECT_EQ(order.substr(0, 2), "12") << "the second arming of the first replaces the other";
    EXPECT_EQ(order.substr(2), "11") << "armed for now, it fires in the same pass";
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
    loop.Dispatch(0);
    loop.Dispatch(0);
    EXPECT_EQ(order, "caa");
}

TEST(Dispatch, ServesWritableBeforeReadableForAsLongAsAHandlerWantsToWrite) {
    EventLoop loop;
    std::string order;
    Source older(IO_READ), newer(IO_READ | IO_WRITE), idle(0);
    older.onReadable = [&] { order += 'o'; };
    newer.onReadable = [&] { order += 'r'; };
    newer.onWritable = [&] {
        order += 'w';
        if (order == "wroww") newer.SetFlags(IO_READ);
    };
    for (Source* source : {&older, &newer, &idle}) loop.AddIO(source);
    EXPECT_EQ(loop.Dispatch(0), 3 + 1 + 1);
    EXPECT_EQ(order, "wroww");
}

TEST(Dispatch, DeliversNothingTwiceOrToTheRemoved) {
    EventLoop loop;
    std::string order;
    auto removed = std::make_unique<Source>(IO_READ | IO_WRITE);
    Source twice(IO_READ), victim(IO_READ), newest(IO_READ), late(IO_READ);
    const auto entry = loop.AddIO(removed.get());
    for (Source* source : {&twice, &victim, &victim, &newest}) loop.AddIO(source);
    newest.onReadable = [&] {
        order += 'n';
        loop.RemoveFd(victim.m_fd);  // both entries
        loop.AddIO(&late);
    };
    twice.onReadable = [&] { order += 't'; };
    late.onReadable = [&] { order += 'l'; };
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
    close(std::exchange(high.m_fd, dup2(high.m_fd, FD_SETSIZE)));
    close(std::exchange(none.m_fd, -1));
    ASSERT_EQ(high.m_fd, FD_SETSIZE);
    loop.AddIO(&none);
    loop.AddIO(&high);
    EXPECT_EQ(loop.Dispatch(1), 0) << "nothing can be waited for";
    loop.AddIO(&watched);
    EXPECT_EQ(loop.Dispatch(0), 1);
    EXPECT_TRUE(served);
}

TEST(Dispatch, WaitsUntilATimerIsDueAndLeavesItToTheNextPass) {
    EventLoop loop;
    Source silent(IO_READ, false);
    loop.AddIO(&silent);
    bool fired = false;
    Timer timer(&loop, [&](auto) { fired = true; });
    const uint64_t start = EventLoop::Now();
    timer.Schedule(60);
    EXPECT_EQ(loop.Dispatch(1), 0);
    EXPECT_GE(EventLoop::Now(), start + 59);
    EXPECT_FALSE(fired);
    while (!fired) loop.Dispatch(0);
}

TEST(Stop, EndsPassesAndRuns) {
    for (const int wait : {0, 1}) {
        EventLoop loop;
        Source unserved(IO_READ), stopping(IO_READ);
        stopping.onReadable = [&] { loop.Stop(3); };
        loop.AddIO(&unserved);
        loop.AddIO(&stopping);
        EXPECT_EQ(loop.Dispatch(wait), wait ? 0 : 2);
        EXPECT_EQ(loop.Run(), 3) << "later ones end likewise";
    }
    EventLoop loop;
    Source silent(IO_READ, false);
    loop.AddIO(&silent);
    Timer timer(&loop, [&](auto) { loop.Stop(7); });
    timer.Schedule(20);
    EXPECT_EQ(loop.Run(), 7);
}

TEST(Run, EndsWhenNothingIsRegistered) {
    EventLoop loop;
    EXPECT_EQ(loop.Run(), 0);
    auto* dead = new Source(IO_READ);  // the dispatcher deletes it
    dead->onReadable = [&] { dead->m_dead = 1; };
    loop.AddIO(dead);
    EXPECT_EQ(loop.Run(), 0);
    bool fired = false;
    Timer alone(&loop, [&](auto) { fired = true; });
    alone.Schedule(20);
    EXPECT_EQ(loop.Run(), 0);
    EXPECT_TRUE(fired);
}

}  // namespace
