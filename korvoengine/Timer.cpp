#include "engine/Timer.h"

namespace kv
{

void CTimer::Reset()
{
    m_nPrimitiveCount = m_nGUIPrimitiveCount = 0;
    m_nDrawCallCount = m_nGUIDrawCallCount = 0;
    m_nVertexCount = m_nGUIVertexCount = 0;
    m_nRenderTargetChanges = 0;
    m_nVBBinds = m_nVBBytes = 0;
    m_nIBBinds = m_nIBBytes = 0;
    m_nExtraInstances = 0;
}

CTimer* GetTimer()
{
    static CTimer timer;
    return &timer;
}

} // namespace kv
