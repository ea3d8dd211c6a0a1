#include "TimerQueryD3D9.h"
#include "D3D9RenderSystem.h"
#include "GfxTimerQueryManager.h"

namespace
{

IDirect3DQuery9* MakeStampQuery()
{
    kv::CD3D9RenderSystem* renderSystem = kv::GetD3D9RenderSystem();
    IDirect3DQuery9* query = nullptr;
    // A device without timestamps leaves it null: that is the whole answer.
    if (renderSystem && renderSystem->m_pD3D9Device)
        renderSystem->m_pD3D9Device->CreateQuery(D3DQUERYTYPE_TIMESTAMP, &query);
    return query;
}

// Ticks times nanoseconds per tick, the ticks read as unsigned over their
// whole range; what lies beyond 64 bits saturates.
uint64_t Nanoseconds(uint64_t ticks, float factor)
{
    const double ns = static_cast<double>(ticks) * static_cast<double>(factor);
    if (!(ns > 0.0))
        return 0;
    if (ns >= 18446744073709551616.0)
        return ~uint64_t(0);
    return static_cast<uint64_t>(ns);
}

} // namespace

TimerQueryD3D9::TimerQueryD3D9()
    : m_pQuery(nullptr), m_nElapsedNs(0), m_fTimeFactor(0.0f), m_bPending(false), m_nTimestamp(0)
{
    m_pQuery = MakeStampQuery();
}

TimerQueryD3D9::~TimerQueryD3D9()
{
    GfxTimerQueryManager::Unlink(this);
    ReleaseQuery();
}

void TimerQueryD3D9::ReleaseQuery()
{
    if (m_pQuery)
    {
        m_pQuery->Release();
        m_pQuery = nullptr;
    }
}

void TimerQueryD3D9::notifyOnDeviceDestroy()
{
    ReleaseQuery();
}

void TimerQueryD3D9::notifyOnDeviceLost()
{
    ReleaseQuery();
}

void TimerQueryD3D9::notifyOnDeviceReset()
{
    if (!m_pQuery)
        m_pQuery = MakeStampQuery();
}

void TimerQueryD3D9::Measure()
{
    GetElapsed(true);
    GfxTimerQueryManager* manager = g_pGfxTimerQueryManager;
    if (!m_pQuery || !manager || !manager->m_pFrequencyQuery)
    {
        m_nElapsedNs = 0;
        m_fTimeFactor = 0.0f;
        return;
    }
    // Measured twice in one frame, the older stamp is simply replaced.
    GfxTimerQueryManager::MoveToEnd(manager->m_measuring, this);
    m_pQuery->Issue(D3DISSUE_END);
    m_bPending = true;
    m_nElapsedNs = kNotReady;
    m_fTimeFactor = 0.0f;
}

uint64_t TimerQueryD3D9::GetElapsed(bool wait)
{
    // A query of the running frame is not yet among the pending results: the
    // loop reads the older ones and ends.
    GfxTimerQueryManager* manager = g_pGfxTimerQueryManager;
    while (m_bPending && manager && manager->ProcessFirst(wait))
    {
    }
    return m_nElapsedNs;
}

uint64_t TimerQueryD3D9::GetTimestamp()
{
    m_nTimestamp = 0;
    if (m_pQuery)
        m_pQuery->GetData(&m_nTimestamp, sizeof(m_nTimestamp), 0);
    return Nanoseconds(m_nTimestamp, m_fTimeFactor);
}

bool TimerQueryD3D9::ReadResult(uint64_t* last, bool wait)
{
    uint64_t stamp = 0;
    HRESULT hr = E_FAIL;
    if (m_pQuery)
    {
        const DWORD flag = wait ? D3DGETDATA_FLUSH : 0;
        while ((hr = m_pQuery->GetData(&stamp, sizeof(stamp), flag)) == S_FALSE)
            if (!wait)
                return false;
    }
    if (FAILED(hr))
    {
        m_nElapsedNs = 0;
        *last = 0;
        return true;
    }
    // The first stamp of a chain has nothing to count from.
    const uint64_t delta = *last ? stamp - *last : 0;
    m_nElapsedNs = Nanoseconds(delta, m_fTimeFactor);
    *last = stamp;
    return true;
}
