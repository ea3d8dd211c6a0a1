#pragma once
// Base class of every thread of the engine and the plug-in. A subclass supplies main();
// the owner calls Start, and later Stop or Wait before deleting the object.
#include <cstdint>
#include <string>

struct ThreadData;

class Thread
{
public:
    explicit Thread(const char* name);
    // Frees the private data. It does not stop the thread: the owner calls Stop or Wait first.
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // The thread's body; its result is the thread's exit code.
    virtual uint32_t main() = 0;

    // Starts the thread unless it is running already.
    void Start();
    uint32_t GetThreadId() const;
    bool IsRunning() const;
    bool IsPaused() const;
    const std::string& GetName() const { return m_name; }

    // Called by the thread itself: blocks until Resume. Returns at once when already paused.
    void Pause();
    // Wakes a paused thread; does nothing to one that isn't paused.
    void Resume();
    // Clears the running flag and returns; main is expected to poll IsRunning.
    void RequestStop();
    // Clears running, wakes the thread and waits for it to leave main. Not from the thread itself.
    void Stop();
    // Wakes the thread and waits for its end whatever the running flag says, then closes the handles.
    void Wait();
    // Ends the thread by force, when it is still inside main.
    void Terminate(uint32_t exitCode);

    static void Sleep(uint32_t milliseconds);

private:
    static unsigned long __stdcall Entry(void* self);
    void SetDebuggerName();
    void Wake();

    ThreadData* m_pData;
    std::string m_name;
};

// Number of logical processors of the machine.
uint32_t GetProcessorCount();
// Percent of busy processor time since the previous call (since the machine started at the
// first call); 0 when no time has passed between two calls.
double GetCpuUsage();
