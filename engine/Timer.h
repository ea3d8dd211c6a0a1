#pragma once
// Frame statistics. The draw code adds to these directly; each scene/GUI pair is
// one sum split by kv::g_bInGUIMode.
#include "engine/Export.h"

namespace kv
{

class KV_API CTimer
{
public:
    CTimer() { Reset(); }
    void Reset();

    unsigned m_nPrimitiveCount;
    unsigned m_nGUIPrimitiveCount;
    unsigned m_nDrawCallCount;
    unsigned m_nGUIDrawCallCount;
    unsigned m_nVertexCount;
    unsigned m_nGUIVertexCount;
    unsigned m_nRenderTargetChanges;
    unsigned m_nVBBinds;
    unsigned m_nVBBytes;
    unsigned m_nIBBinds;
    unsigned m_nIBBytes;
    unsigned m_nExtraInstances;
};

KV_API CTimer* GetTimer();

} // namespace kv
