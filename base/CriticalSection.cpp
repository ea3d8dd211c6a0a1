#include "base/CriticalSection.h"

CriticalSection::CriticalSection()
{
    InitializeCriticalSection(&m_section);
}

CriticalSection::~CriticalSection()
{
    DeleteCriticalSection(&m_section);
}

void CriticalSection::Enter()
{
    EnterCriticalSection(&m_section);
}

void CriticalSection::Leave()
{
    LeaveCriticalSection(&m_section);
}

bool CriticalSection::TryEnter()
{
    return TryEnterCriticalSection(&m_section) != FALSE;
}
