#include "base/CriticalSection.h"
#include "base/Thread.h"

#include <gtest/gtest.h>

#include <atomic>

namespace
{
// Tries the lock from its own thread and reports what it got.
class TryThread : public Thread
{
public:
    TryThread(CriticalSection& lock) : Thread("try"), m_lock(lock) {}
    uint32_t main() override
    {
        got = m_lock.TryEnter();
        if (got)
            m_lock.Leave();
        return 0;
    }
    std::atomic<bool> got{false};

private:
    CriticalSection& m_lock;
};
} // namespace

TEST(CriticalSection, TryEnterSeesAnotherThreadsHold)
{
    CriticalSection lock;
    lock.Enter();
    // Recursive on the owning thread.
    EXPECT_TRUE(lock.TryEnter());
    lock.Leave();

    TryThread blocked(lock);
    blocked.Start();
    blocked.Wait();
    EXPECT_FALSE(blocked.got.load());

    lock.Leave();
    TryThread free(lock);
    free.Start();
    free.Wait();
    EXPECT_TRUE(free.got.load());
}
