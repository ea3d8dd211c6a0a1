#include "GfxTimerQueryManager.h"
#include "D3D9RenderSystem.h"
#include "TimerQueryD3D9.h"

namespace
{

void MakeHead(ListElement& list)
{
    list.m_pPrev = list.m_pNext = list.m_pList = &list;
}

TimerQueryD3D9* First(ListElement& list)
{
    // Only queries are ever linked into the lists.
    return static_cast<TimerQueryD3D9*>(static_cast<GfxTimerQuery*>(list.m_pNext));
}

} // namespace

GfxTimerQueryManager::GfxTimerQueryManager()
    : m_nLastTimestamp(0), m_pFrequencyQuery(nullptr), m_pFrameQueries{nullptr, nullptr, nullptr}, m_nFrameIndex(0)
{
    MakeHead(m_inactive);
    MakeHead(m_measuring);
    MakeHead(m_pendingResults);
}

GfxTimerQueryManager::~GfxTimerQueryManager()
{
    if (m_pFrequencyQuery)
    {
        m_pFrequencyQuery->Release();
        m_pFrequencyQuery = nullptr;
    }
    for (TimerQueryD3D9*& query : m_pFrameQueries)
    {
        delete query;
        query = nullptr;
    }
    while (!IsEmpty(m_measuring))
        MoveToEnd(m_inactive, m_measuring.m_pNext);
    while (!IsEmpty(m_pendingResults))
        MoveToEnd(m_inactive, m_pendingResults.m_pNext);
    // The engine deletes its queries later; they must find no list to leave.
    while (!IsEmpty(m_inactive))
    {
        TimerQueryD3D9* query = First(m_inactive);
        query->m_bPending = false;
        query->m_nElapsedNs = 0;
        query->notifyOnDeviceDestroy();
        Unlink(query);
    }
}

void GfxTimerQueryManager::Unlink(ListElement* node)
{
    if (!node->m_pPrev)
        return;
    node->m_pPrev->m_pNext = node->m_pNext;
    node->m_pNext->m_pPrev = node->m_pPrev;
    node->m_pPrev = node->m_pNext = node->m_pList = nullptr;
}

void GfxTimerQueryManager::MoveToEnd(ListElement& list, ListElement* node)
{
    Unlink(node);
    node->m_pPrev = list.m_pPrev;
    node->m_pNext = &list;
    node->m_pList = &list;
    list.m_pPrev->m_pNext = node;
    list.m_pPrev = node;
}

TimerQueryD3D9* GfxTimerQueryManager::CreateQuery()
{
    TimerQueryD3D9* query = new TimerQueryD3D9;
    MoveToEnd(m_inactive, query);
    return query;
}

void GfxTimerQueryManager::BeginFrame()
{
    while (ProcessFirst(false))
    {
    }
    kv::CD3D9RenderSystem* renderSystem = kv::GetD3D9RenderSystem();
    IDirect3DDevice9* device = renderSystem ? renderSystem->m_pD3D9Device : nullptr;
    if (!m_pFrequencyQuery && device)
        device->CreateQuery(D3DQUERYTYPE_TIMESTAMPFREQ, &m_pFrequencyQuery);
    if (m_pFrequencyQuery)
        m_pFrequencyQuery->Issue(D3DISSUE_END);
    TimerQueryD3D9*& frameQuery = m_pFrameQueries[m_nFrameIndex];
    if (!frameQuery)
        frameQuery = new TimerQueryD3D9;
    // The frame's first stamp: the engine's first measurement counts from here.
    // An entry that comes round again waits for its last result if need be.
    frameQuery->Measure();
    m_nFrameIndex = (m_nFrameIndex + 1) % kFrameQueries;
}

void GfxTimerQueryManager::EndFrame()
{
    if (!m_pFrequencyQuery)
        return;
    uint64_t frequency = 0;
    HRESULT hr;
    while ((hr = m_pFrequencyQuery->GetData(&frequency, sizeof(frequency), D3DGETDATA_FLUSH)) == S_FALSE)
    {
    }
    // Without a frequency the frame's results come out as 0.
    if (hr == D3D_OK && frequency != 0)
    {
        const float factor = static_cast<float>(1000000000.0 / static_cast<double>(frequency));
        for (ListElement* node = m_measuring.m_pNext; node != &m_measuring; node = node->m_pNext)
            static_cast<TimerQueryD3D9*>(static_cast<GfxTimerQuery*>(node))->m_fTimeFactor = factor;
    }
    while (!IsEmpty(m_measuring))
        MoveToEnd(m_pendingResults, m_measuring.m_pNext);
}

bool GfxTimerQueryManager::ProcessFirst(bool wait)
{
    if (IsEmpty(m_pendingResults))
        return false;
    TimerQueryD3D9* query = First(m_pendingResults);
    if (!query->ReadResult(&m_nLastTimestamp, wait))
        return false;
    query->m_bPending = false;
    MoveToEnd(m_inactive, query);
    return true;
}

void GfxTimerQueryManager::DropDeviceQueries()
{
    if (m_pFrequencyQuery)
    {
        m_pFrequencyQuery->Release();
        m_pFrequencyQuery = nullptr;
    }
    // A stamp issued before the reset never arrives: its native query goes
    // with the device.
    for (ListElement* list : {&m_measuring, &m_pendingResults})
        while (!IsEmpty(*list))
        {
            TimerQueryD3D9* query = First(*list);
            query->m_bPending = false;
            query->m_nElapsedNs = 0;
            MoveToEnd(m_inactive, query);
        }
    m_nLastTimestamp = 0;
}
