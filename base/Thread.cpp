#include "base/Thread.h"
#include "base/ThreadData.h"

#include <mutex>

namespace
{
// The record a debugger reads from the thread-naming exception.
const DWORD kThreadNameException = 0x406D1388;

#pragma pack(push, 8)
struct ThreadNameInfo
{
    DWORD type; // always 0x1000
    const char* name;
    DWORD threadId;
    DWORD flags; // reserved, 0
};
#pragma pack(pop)

LONG CALLBACK SwallowThreadNameException(EXCEPTION_POINTERS* info)
{
    if (info->ExceptionRecord->ExceptionCode == kThreadNameException)
        return EXCEPTION_CONTINUE_EXECUTION;
    return EXCEPTION_CONTINUE_SEARCH;
}

HANDLE CreatePauseEvent()
{
    return CreateEventA(nullptr, FALSE, FALSE, nullptr);
}
} // namespace

Thread::Thread(const char* name) : m_pData(new ThreadData()), m_name(name ? name : "")
{
    m_pData->event = CreatePauseEvent();
}

Thread::~Thread()
{
    // Handles an owner left open are closed here; closing a thread's handle does not end it.
    if (m_pData->handle)
        CloseHandle(m_pData->handle);
    if (m_pData->event)
        CloseHandle(m_pData->event);
    delete m_pData;
}

unsigned long __stdcall Thread::Entry(void* self)
{
    // Start has already raised the running flag: raising it again here would undo a
    // RequestStop that came between CreateThread and the first instruction of this thread.
    return static_cast<Thread*>(self)->main();
}

void Thread::Start()
{
    if (m_pData->running.load())
        return;
    // A finished thread that was stopped by request still has its handle.
    if (m_pData->handle)
    {
        WaitForSingleObject(m_pData->handle, INFINITE);
        CloseHandle(m_pData->handle);
        m_pData->handle = nullptr;
    }
    // Stop and Wait close the event; a restarted thread needs it again to pause.
    if (!m_pData->event)
        m_pData->event = CreatePauseEvent();
    m_pData->paused.store(false);
    m_pData->running.store(true);
    DWORD id = 0;
    m_pData->handle = CreateThread(nullptr, 0, &Thread::Entry, this, 0, &id);
    if (!m_pData->handle)
    {
        m_pData->running.store(false);
        return;
    }
    m_pData->id = id;
    SetDebuggerName();
}

void Thread::SetDebuggerName()
{
    // Only a debugger listens to this exception; without one there is nobody to tell.
    if (!IsDebuggerPresent())
        return;
    ThreadNameInfo info;
    info.type = 0x1000;
    info.name = m_name.c_str();
    info.threadId = m_pData->id;
    info.flags = 0;
    // The debugger sees the exception first; the handler then resumes the program, in place
    // of the structured handler a compiler without __try cannot write.
    PVOID handler = AddVectoredExceptionHandler(1, &SwallowThreadNameException);
    RaiseException(kThreadNameException, 0, sizeof(info) / sizeof(ULONG_PTR),
                   reinterpret_cast<const ULONG_PTR*>(&info));
    if (handler)
        RemoveVectoredExceptionHandler(handler);
}

uint32_t Thread::GetThreadId() const
{
    return m_pData->id;
}

bool Thread::IsRunning() const
{
    return m_pData->running.load();
}

bool Thread::IsPaused() const
{
    return m_pData->paused.load();
}

void Thread::Pause()
{
    if (m_pData->paused.exchange(true))
        return;
    // A Resume between the flag and the wait has signalled the event already, and the
    // auto-reset event keeps that signal until this wait takes it: no wake-up is lost.
    if (m_pData->event)
        WaitForSingleObject(m_pData->event, INFINITE);
}

void Thread::Resume()
{
    if (!m_pData->paused.exchange(false))
        return;
    if (m_pData->event)
        SetEvent(m_pData->event);
}

void Thread::RequestStop()
{
    m_pData->running.store(false);
}

void Thread::Wake()
{
    // Unlike Resume, signal even when the thread is not paused yet: a thread told to stop that
    // reaches Pause only after this call must find the signal waiting, or it would sleep for
    // ever while its owner waits for it to end.
    m_pData->paused.store(false);
    if (m_pData->event)
        SetEvent(m_pData->event);
}

void Thread::Stop()
{
    if (!m_pData->running.exchange(false))
        return;
    Wake();
    if (m_pData->handle)
    {
        WaitForSingleObject(m_pData->handle, INFINITE);
        CloseHandle(m_pData->handle);
    }
    if (m_pData->event)
        CloseHandle(m_pData->event);
    m_pData->handle = nullptr;
    m_pData->event = nullptr;
}

void Thread::Wait()
{
    Wake();
    if (m_pData->handle)
    {
        WaitForSingleObject(m_pData->handle, INFINITE);
        CloseHandle(m_pData->handle);
    }
    if (m_pData->event)
        CloseHandle(m_pData->event);
    m_pData->handle = nullptr;
    m_pData->event = nullptr;
}

void Thread::Terminate(uint32_t exitCode)
{
    if (!m_pData->running.load())
        return;
    if (m_pData->handle)
    {
        DWORD code = 0;
        if (GetExitCodeThread(m_pData->handle, &code) && code == STILL_ACTIVE)
            TerminateThread(m_pData->handle, exitCode);
        CloseHandle(m_pData->handle);
        m_pData->handle = nullptr;
    }
    m_pData->running.store(false);
}

void Thread::Sleep(uint32_t milliseconds)
{
    SleepEx(milliseconds, FALSE);
}

uint32_t GetProcessorCount()
{
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwNumberOfProcessors;
}

namespace
{
uint64_t FileTimeToU64(const FILETIME& t)
{
    return (static_cast<uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime;
}
} // namespace

double GetCpuUsage()
{
    // The previous reading; zero before the first call, so that call measures since boot.
    static std::mutex s_lock;
    static uint64_t s_idle = 0, s_kernel = 0, s_user = 0;

    FILETIME idleTime, kernelTime, userTime;
    if (!GetSystemTimes(&idleTime, &kernelTime, &userTime))
        return 0.0;
    const uint64_t idle = FileTimeToU64(idleTime);
    const uint64_t kernel = FileTimeToU64(kernelTime);
    const uint64_t user = FileTimeToU64(userTime);

    std::lock_guard<std::mutex> guard(s_lock);
    const uint64_t idleDiff = idle - s_idle;
    // Kernel time includes the idle time, so kernel plus user is all the time that passed.
    const uint64_t total = (kernel - s_kernel) + (user - s_user);
    s_idle = idle;
    s_kernel = kernel;
    s_user = user;
    // Two calls within one tick of the system clock measure nothing: no time passed, so no
    // time was busy, and the answer is 0 rather than a division by zero.
    if (total == 0)
        return 0.0;
    // A clock that reports more idle than total time cannot be below 0 % busy.
    if (idleDiff >= total)
        return 0.0;
    return static_cast<double>(total - idleDiff) / static_cast<double>(total) * 100.0;
}
