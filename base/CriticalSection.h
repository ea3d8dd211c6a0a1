#pragma once
// A thin Win32 lock. Its layout is one CRITICAL_SECTION and nothing else, because the
// engine library hands its own instances (the shader archive's mutex) to the plug-in.
#include <windows.h>

class CriticalSection
{
public:
    CriticalSection();
    ~CriticalSection();
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    // Recursive: the owning thread may enter again and must leave as often.
    void Enter();
    void Leave();
    // True when the lock was taken (and must be left), false when another thread holds it.
    bool TryEnter();

private:
    CRITICAL_SECTION m_section;
};
