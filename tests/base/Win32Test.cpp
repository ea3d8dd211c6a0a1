// The helpers that need Windows: settings files, the current and the program's
// directory, random numbers, threads (start, stop, pause and resume without lost
// wake-ups, termination), critical sections, and the processor count and load.
#include "base/CriticalSection.h"
#include "base/StaticFunc.h"
#include "base/Thread.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>

using S = CStaticFunc;

namespace
{

TEST(Win32Helpers, SettingsFiles)
{
    // Settings files are looked up in the Windows folder unless the path is full.
    const std::string path = S::GetCurrentDir() + "\\base_ini_test.ini";
    FILE* f = std::fopen(path.c_str(), "w");
    ASSERT_NE(nullptr, f);
    std::fprintf(f, "[Render]\nWidth=1280\nHeight = -720\nName=Korvo Engine\nBad=abc\nLong=%s\n[Other]\nWidth=7\n",
                 std::string(400, 'L').c_str());
    std::fclose(f);
    const char* file = path.c_str();
    EXPECT_EQ((std::vector<int>{1280, 7, -720, 0, 0, 0, 0}),
              (std::vector<int>{S::GetIniInt(file, "Render", "Width"), S::GetIniInt(file, "Other", "Width"),
                                S::GetIniInt(file, "Render", "Height"), S::GetIniInt(file, "Render", "Missing"),
                                S::GetIniInt(file, "Nowhere", "Width"), S::GetIniInt(file, "Render", "Bad"),
                                S::GetIniInt("C:\\no_such_dir\\none.ini", "Render", "Width")}));
    EXPECT_EQ("Korvo Engine", S::GetIniString(file, "Render", "Name"));
    EXPECT_EQ("", S::GetIniString(file, "Render", "Missing"));
    // The 256-byte buffer keeps 255 characters; a null key would list the section's keys.
    EXPECT_EQ(std::string(255, 'L'), S::GetIniString(file, "Render", "Long"));
    EXPECT_EQ("", S::GetIniString(file, "Render", nullptr));
    std::remove(file);
}

TEST(Win32Helpers, DirectoriesAndRandom)
{
    const std::string start = S::GetCurrentDir();
    ASSERT_FALSE(start.empty());
    S::CreateDirectories(start + "\\base_cwd_test");
    EXPECT_TRUE(S::SetCurrentDir(start + "\\base_cwd_test"));
    EXPECT_EQ(start + "\\base_cwd_test", S::GetCurrentDir());
    EXPECT_TRUE(S::SetCurrentDir(start));
    EXPECT_FALSE(S::SetCurrentDir(start + "\\no_such_directory_here"));
    EXPECT_EQ(start, S::GetCurrentDir());
    RemoveDirectoryA((start + "\\base_cwd_test").c_str());
    char module[MAX_PATH] = {0};
    GetModuleFileNameA(nullptr, module, MAX_PATH);
    EXPECT_EQ(std::string(module).substr(0, std::string(module).rfind('\\') + 1), S::GetExeDir());

    // Limit 0 answers 0 and leaves rand's sequence where it was.
    std::srand(1234);
    const int first = std::rand();
    std::srand(1234);
    EXPECT_EQ(0u, S::Random(0, false) + S::Random(0, true));
    EXPECT_EQ(first, std::rand());
    for (int i = 0; i < 1000; ++i)
        EXPECT_LT(S::Random(7, i == 0), 7u);
    std::srand(99);
    const unsigned a = S::Random(1000000, false);
    std::srand(99);
    EXPECT_EQ(a, static_cast<unsigned>(std::rand()) % 1000000u);
}

// Polls cond until it holds or the time runs out, so that a lost wake-up fails
// the test instead of hanging it.
bool WaitFor(const std::function<bool()>& cond)
{
    const DWORD start = GetTickCount();
    while (!cond())
    {
        if (GetTickCount() - start > 10000)
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

// The exit code of a thread, through a handle of our own; 0xDEAD if it did not end.
DWORD ExitCodeOf(HANDLE own)
{
    DWORD code = 0xDEAD;
    if (WaitForSingleObject(own, 10000) == WAIT_OBJECT_0)
        GetExitCodeThread(own, &code);
    CloseHandle(own);
    return code;
}

HANDLE Open(const Thread& t)
{
    return OpenThread(SYNCHRONIZE | THREAD_QUERY_INFORMATION, FALSE, t.GetThreadId());
}

TEST(Thread, StartRunsMainOnceOnANewThreadAndStopEndsIt)
{
    FunctionThread t("worker", [](FunctionThread& self) {
        while (self.IsRunning())
            Thread::Sleep(1);
        return 5u;
    });
    t.Stop(); // never started: nothing to wait for
    t.Start();
    const uint32_t id = t.GetThreadId();
    t.Start(); // running: no second thread
    EXPECT_EQ(id, t.GetThreadId());
    ASSERT_TRUE(WaitFor([&] { return t.entries.load() == 1; }));
    EXPECT_EQ(t.GetThreadId(), t.osThreadId.load());
    EXPECT_NE(GetCurrentThreadId(), t.osThreadId.load());
    HANDLE own = Open(t);
    t.RequestStop(); // seen by the polling body
    EXPECT_FALSE(t.IsRunning());
    EXPECT_EQ(5u, ExitCodeOf(own));
    t.Wait();
    EXPECT_EQ(1, t.entries.load());

    // The flag stays up after main returns; Stop still takes the thread down.
    FunctionThread quick(nullptr, [](FunctionThread&) { return 0u; });
    EXPECT_EQ("worker", t.GetName() + quick.GetName());
    quick.Start();
    ASSERT_TRUE(WaitFor([&] { return quick.finished.load(); }));
    EXPECT_TRUE(quick.IsRunning());
    quick.Stop();
    EXPECT_FALSE(quick.IsRunning());
}

TEST(Thread, PauseResumeAndStopLoseNoWakeUp)
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
    t.Wait();

    // A Resume without a Pause leaves no signal for the next Pause; a Pause of a
    // paused thread returns at once; Stop wakes a paused thread.
    std::atomic<bool> go{false};
    FunctionThread late("late", [&](FunctionThread& self) {
        while (!go.load())
            Thread::Sleep(1);
        while (self.IsRunning())
            self.Pause();
        return 0u;
    });
    late.Start();
    late.Resume();
    go = true;
    ASSERT_TRUE(WaitFor([&] { return late.IsPaused(); }));
    late.Pause();
    Thread::Sleep(100);
    EXPECT_FALSE(late.finished.load());
    late.Stop();
    EXPECT_TRUE(late.finished.load() && !late.IsRunning() && !late.IsPaused());
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
    HANDLE own = Open(stuck);
    stuck.Terminate(7);
    EXPECT_FALSE(stuck.IsRunning());
    EXPECT_EQ(7u, ExitCodeOf(own));

    // main has returned: the exit code is main's, not the one given here.
    FunctionThread done("done", [](FunctionThread&) { return 3u; });
    done.Start();
    own = Open(done);
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(own, 10000));
    done.Terminate(9);
    EXPECT_EQ(3u, ExitCodeOf(own));
}

TEST(CriticalSection, KeepsOthersOutAndLetsTheOwnerIn)
{
    CriticalSection lock;
    long counter = 0; // deliberately not atomic: only the lock makes it exact
    auto add = [&](FunctionThread&) {
        for (int k = 0; k < 100000; ++k)
        {
            lock.Enter();
            lock.Enter(); // recursive on the same thread
            ++counter;
            lock.Leave();
            lock.Leave();
        }
        return 0u;
    };
    FunctionThread a("a", add), b("b", add);
    a.Start();
    b.Start();
    a.Wait();
    b.Wait();
    EXPECT_EQ(200000, counter);

    // TryEnter: yes on the owning thread, no from another while held, yes once free.
    auto tryFromAnotherThread = [&] {
        std::atomic<int> got{-1};
        FunctionThread t("try", [&](FunctionThread&) {
            if ((got = lock.TryEnter()))
                lock.Leave();
            return 0u;
        });
        t.Start();
        t.Wait();
        return got.load();
    };
    lock.Enter();
    EXPECT_TRUE(lock.TryEnter());
    lock.Leave();
    EXPECT_EQ(0, tryFromAnotherThread());
    lock.Leave();
    EXPECT_EQ(1, tryFromAnotherThread());
}

TEST(Machine, ProcessorCountAndCpuUsage)
{
    EXPECT_EQ(std::thread::hardware_concurrency(), GetProcessorCount());
    // Back-to-back calls often see no time pass at all, and must still answer 0 to 100.
    for (int i = 0; i < 2000; ++i)
        ASSERT_TRUE(GetCpuUsage() >= 0.0 && GetCpuUsage() <= 100.0) << "call " << i;
    // Keep one processor busy for a while: the load since the last call cannot be zero.
    const DWORD start = GetTickCount();
    volatile unsigned spin = 0;
    while (GetTickCount() - start < 300)
        ++spin;
    const double busy = GetCpuUsage();
    EXPECT_TRUE(busy > 0.0 && busy <= 100.0) << busy;
}

} // namespace
