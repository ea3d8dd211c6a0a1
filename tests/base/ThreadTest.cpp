#include "base/Thread.h"
#include "base/CriticalSection.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <deque>
#include <functional>
#include <thread>
#include <vector>

namespace
{
// Polls cond until it holds or the time runs out, so that a lost wake-up fails the test
// instead of hanging it.
bool WaitFor(const std::function<bool()>& cond, DWORD milliseconds = 10000)
{
    const DWORD start = GetTickCount();
    while (!cond())
    {
        if (GetTickCount() - start > milliseconds)
            return false;
        SwitchToThread();
    }
    return true;
}

// A thread whose body is a function, so each test writes its own.
class FunctionThread : public Thread
{
public:
    FunctionThread(const char* name, std::function<uint32_t(FunctionThread&)> body)
        : Thread(name), m_body(std::move(body))
    {
    }
    uint32_t main() override
    {
        osThreadId = GetCurrentThreadId();
        ++entries;
        const uint32_t code = m_body(*this);
        finished = true;
        return code;
    }
    std::atomic<DWORD> osThreadId{0};
    std::atomic<int> entries{0};
    std::atomic<bool> finished{false};

private:
    std::function<uint32_t(FunctionThread&)> m_body;
};

// A handle of our own on a thread, by its id.
HANDLE OpenThreadById(uint32_t id)
{
    return OpenThread(SYNCHRONIZE | THREAD_QUERY_INFORMATION, FALSE, id);
}

// Waits for the thread behind our own handle to end, closes the handle, and answers its exit
// code; 0xDEAD if it did not end.
DWORD ExitCodeOf(HANDLE own)
{
    DWORD code = 0xDEAD;
    if (own && WaitForSingleObject(own, 10000) == WAIT_OBJECT_0)
        GetExitCodeThread(own, &code);
    if (own)
        CloseHandle(own);
    return code;
}
} // namespace

TEST(Thread, StartRunsMainOnANewThread)
{
    FunctionThread t("worker", [](FunctionThread&) { return 5u; });
    EXPECT_EQ("worker", t.GetName());
    EXPECT_FALSE(t.IsRunning());
    t.Start();
    EXPECT_TRUE(t.IsRunning());
    ASSERT_TRUE(WaitFor([&] { return t.finished.load(); }));
    EXPECT_EQ(t.GetThreadId(), t.osThreadId.load());
    EXPECT_NE(GetCurrentThreadId(), t.osThreadId.load());
    EXPECT_EQ(5u, ExitCodeOf(OpenThreadById(t.GetThreadId())));
    // The flag stays up after main returns; Stop still takes the thread down.
    EXPECT_TRUE(t.IsRunning());
    t.Stop();
    EXPECT_FALSE(t.IsRunning());

    FunctionThread unnamed(nullptr, [](FunctionThread&) { return 0u; });
    EXPECT_EQ("", unnamed.GetName());
}

TEST(Thread, StartTwiceAndStopUnstarted)
{
    FunctionThread idle("idle", [](FunctionThread&) { return 0u; });
    idle.Stop(); // never started: nothing to wait for
    EXPECT_FALSE(idle.IsRunning());

    FunctionThread t("loop", [](FunctionThread& self) {
        while (self.IsRunning())
            Thread::Sleep(1);
        return 0u;
    });
    t.Start();
    const uint32_t id = t.GetThreadId();
    t.Start();
    EXPECT_EQ(id, t.GetThreadId());
    ASSERT_TRUE(WaitFor([&] { return t.entries.load() >= 1; }));
    Thread::Sleep(20);
    EXPECT_EQ(1, t.entries.load());
    t.Stop();
    EXPECT_TRUE(t.finished.load());
    EXPECT_EQ(1, t.entries.load());

    // A stopped thread starts again, and can pause again on a fresh event.
    FunctionThread again("again", [](FunctionThread& self) {
        self.Pause();
        return 0u;
    });
    again.Start();
    again.Stop();
    again.finished = false;
    again.Start();
    ASSERT_TRUE(WaitFor([&] { return again.IsPaused(); }));
    Thread::Sleep(20);
    EXPECT_FALSE(again.finished.load());
    again.Resume();
    ASSERT_TRUE(WaitFor([&] { return again.finished.load(); }));
    again.Wait();
    EXPECT_EQ(2, again.entries.load());
}

TEST(Thread, RequestStopIsSeenByThePollingBody)
{
    std::atomic<int> rounds{0};
    FunctionThread t("poll", [&](FunctionThread& self) {
        while (self.IsRunning())
            ++rounds;
        return 0u;
    });
    t.Start();
    ASSERT_TRUE(WaitFor([&] { return rounds.load() > 1000; }));
    t.RequestStop();
    EXPECT_FALSE(t.IsRunning());
    ASSERT_TRUE(WaitFor([&] { return t.finished.load(); }));
    t.Wait();
}

TEST(Thread, PauseAndResumeManyTimesLoseNoWakeUp)
{
    const int kRounds = 5000;
    std::atomic<int> woken{0};
    FunctionThread t("pauser", [&](FunctionThread& self) {
        for (int i = 0; i < kRounds; ++i)
        {
            self.Pause();
            ++woken;
        }
        return 0u;
    });
    t.Start();
    for (int i = 0; i < kRounds; ++i)
    {
        // The thread raises the flag before it waits: Resume may well come before the wait.
        ASSERT_TRUE(WaitFor([&] { return t.IsPaused(); })) << "round " << i;
        t.Resume();
        ASSERT_TRUE(WaitFor([&] { return woken.load() > i; })) << "lost wake-up in round " << i;
    }
    ASSERT_TRUE(WaitFor([&] { return t.finished.load(); }));
    t.Wait();
    EXPECT_EQ(kRounds, woken.load());
}

TEST(Thread, PauseWhilePausedReturnsAndResumeWithoutPauseLeavesNoSignal)
{
    std::atomic<bool> go{false};
    std::atomic<int> passed{0};
    FunctionThread t("pause", [&](FunctionThread& self) {
        while (!go.load())
            Thread::Sleep(1);
        self.Pause();
        ++passed;
        return 0u;
    });
    t.Start();
    // Not paused: this Resume must not leave a signal that lets the coming Pause through.
    t.Resume();
    go = true;
    ASSERT_TRUE(WaitFor([&] { return t.IsPaused(); }));
    Thread::Sleep(100);
    EXPECT_EQ(0, passed.load());
    // Paused already: a second Pause returns at once instead of blocking this thread.
    t.Pause();
    EXPECT_TRUE(t.IsPaused());
    EXPECT_EQ(0, passed.load());
    t.Resume();
    ASSERT_TRUE(WaitFor([&] { return passed.load() == 1; }));
    EXPECT_FALSE(t.IsPaused());
    t.Wait();
}

TEST(Thread, StopWakesAPausedThread)
{
    FunctionThread t("sleeper", [](FunctionThread& self) {
        while (self.IsRunning())
            self.Pause();
        return 0u;
    });
    t.Start();
    ASSERT_TRUE(WaitFor([&] { return t.IsPaused(); }));
    t.Stop();
    EXPECT_TRUE(t.finished.load());
    EXPECT_FALSE(t.IsRunning());
    EXPECT_FALSE(t.IsPaused());
}

TEST(Thread, StopBeforeTheThreadPausesStillEndsIt)
{
    // The body reaches Pause only after Stop has woken it: the wake-up must not be lost.
    std::atomic<bool> go{false};
    FunctionThread late("late", [&](FunctionThread& self) {
        while (!go.load())
            Thread::Sleep(1);
        self.Pause();
        return 0u;
    });
    late.Start();
    ASSERT_TRUE(WaitFor([&] { return late.entries.load() == 1; }));
    FunctionThread stopper("stopper", [&](FunctionThread&) {
        late.Stop();
        return 0u;
    });
    stopper.Start();
    Thread::Sleep(50);
    go = true;
    ASSERT_TRUE(WaitFor([&] { return stopper.finished.load(); })) << "Stop never returned";
    stopper.Wait();
    EXPECT_TRUE(late.finished.load());
}

TEST(Thread, TerminateEndsAStuckThreadOnly)
{
    FunctionThread stuck("stuck", [](FunctionThread&) {
        for (;;)
            Thread::Sleep(1);
        return 0u;
    });
    stuck.Terminate(1); // not running: nothing
    stuck.Start();
    ASSERT_TRUE(WaitFor([&] { return stuck.entries.load() == 1; }));
    HANDLE own = OpenThreadById(stuck.GetThreadId());
    ASSERT_NE(nullptr, own);
    stuck.Terminate(7);
    EXPECT_FALSE(stuck.IsRunning());
    EXPECT_EQ(7u, ExitCodeOf(own));
    EXPECT_FALSE(stuck.finished.load());

    FunctionThread done("done", [](FunctionThread&) { return 3u; });
    done.Start();
    HANDLE doneHandle = OpenThreadById(done.GetThreadId());
    ASSERT_NE(nullptr, doneHandle);
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(doneHandle, 10000));
    // main has returned: the exit code is main's, not the one given here.
    done.Terminate(9);
    EXPECT_FALSE(done.IsRunning());
    EXPECT_EQ(3u, ExitCodeOf(doneHandle));
}

TEST(Thread, ProducersAndConsumerThroughEventAndLock)
{
    const int kProducers = 3;
    const int kItems = 10000;
    CriticalSection lock;
    std::deque<int> queue;
    HANDLE ready = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    ASSERT_NE(nullptr, ready);

    std::vector<std::unique_ptr<FunctionThread>> producers;
    for (int p = 0; p < kProducers; ++p)
    {
        producers.emplace_back(new FunctionThread("producer", [&, p](FunctionThread&) {
            for (int i = 0; i < kItems; ++i)
            {
                lock.Enter();
                queue.push_back(p * kItems + i);
                lock.Leave();
                SetEvent(ready);
            }
            return 0u;
        }));
    }

    std::atomic<bool> timedOut{false};
    std::atomic<int> outOfOrder{0};
    std::atomic<long long> sum{0};
    std::atomic<int> consumed{0};
    FunctionThread consumer("consumer", [&](FunctionThread&) {
        std::vector<int> last(kProducers, -1);
        while (consumed.load() < kProducers * kItems)
        {
            // Only an item pushed after the last drain can leave the event set: a wait that
            // times out with items still queued would be a lost wake-up.
            if (WaitForSingleObject(ready, 10000) != WAIT_OBJECT_0)
            {
                timedOut = true;
                break;
            }
            for (;;)
            {
                lock.Enter();
                if (queue.empty())
                {
                    lock.Leave();
                    break;
                }
                const int item = queue.front();
                queue.pop_front();
                lock.Leave();
                const int p = item / kItems;
                if (item % kItems != last[p] + 1)
                    ++outOfOrder;
                last[p] = item % kItems;
                sum += item;
                ++consumed;
            }
        }
        return 0u;
    });

    consumer.Start();
    for (auto& p : producers)
        p->Start();
    for (auto& p : producers)
        p->Wait();
    consumer.Wait();
    CloseHandle(ready);

    const long long n = static_cast<long long>(kProducers) * kItems;
    EXPECT_FALSE(timedOut.load());
    EXPECT_EQ(n, consumed.load());
    EXPECT_EQ(n * (n - 1) / 2, sum.load());
    EXPECT_EQ(0, outOfOrder.load());
    EXPECT_TRUE(queue.empty());
}

TEST(Thread, LockKeepsACounterExact)
{
    CriticalSection lock;
    long counter = 0; // deliberately not atomic: only the lock makes it exact
    std::vector<std::unique_ptr<FunctionThread>> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(new FunctionThread("adder", [&](FunctionThread&) {
            for (int k = 0; k < 100000; ++k)
            {
                lock.Enter();
                lock.Enter(); // recursive on the same thread
                ++counter;
                lock.Leave();
                lock.Leave();
            }
            return 0u;
        }));
    for (auto& t : threads)
        t->Start();
    for (auto& t : threads)
        t->Wait();
    EXPECT_EQ(400000, counter);
}

TEST(Machine, ProcessorCountAndCpuUsage)
{
    EXPECT_GE(GetProcessorCount(), 1u);
    EXPECT_EQ(std::thread::hardware_concurrency(), GetProcessorCount());

    // The first call measures since boot; later ones since the call before. Back-to-back calls
    // often see no time pass at all, and must still answer a number between 0 and 100.
    for (int i = 0; i < 2000; ++i)
    {
        const double usage = GetCpuUsage();
        ASSERT_TRUE(std::isfinite(usage)) << "call " << i;
        ASSERT_GE(usage, 0.0);
        ASSERT_LE(usage, 100.0);
    }
    // Keep one processor busy for a while: the load since the last call cannot be zero.
    GetCpuUsage();
    const DWORD start = GetTickCount();
    volatile unsigned spin = 0;
    while (GetTickCount() - start < 300)
        ++spin;
    const double busy = GetCpuUsage();
    EXPECT_GT(busy, 0.0);
    EXPECT_LE(busy, 100.0);
}
