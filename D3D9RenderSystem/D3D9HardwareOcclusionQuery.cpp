#include "D3D9HardwareOcclusionQuery.h"
#include "D3D9RenderSystem.h"

namespace kv
{

namespace
{

// What IsResultPending leaves after a lost device: enough pixels that an
// object culled by its count is drawn rather than lost from the picture.
constexpr unsigned kPixelsAfterLoss = 100000;

} // namespace

CD3D9HardwareOcclusionQuery::CD3D9HardwareOcclusionQuery() : m_pQuery(nullptr) {}

CD3D9HardwareOcclusionQuery::~CD3D9HardwareOcclusionQuery()
{
    ReleaseQuery();
}

void CD3D9HardwareOcclusionQuery::ReleaseQuery()
{
    if (m_pQuery)
    {
        m_pQuery->Release();
        m_pQuery = nullptr;
    }
}

void CD3D9HardwareOcclusionQuery::notifyOnDeviceDestroy()
{
    ReleaseQuery();
}

void CD3D9HardwareOcclusionQuery::notifyOnDeviceLost()
{
    ReleaseQuery();
}

void CD3D9HardwareOcclusionQuery::BeginQuery()
{
    CD3D9RenderSystem* renderSystem = GetD3D9RenderSystem();
    IDirect3DDevice9* device = renderSystem ? renderSystem->m_pD3D9Device : nullptr;
    if (!device)
        return;
    if (!m_pQuery)
    {
        // A null out pointer only asks whether the device has such queries.
        const HRESULT hr = device->CreateQuery(D3DQUERYTYPE_OCCLUSION, nullptr);
        if (FAILED(hr))
        {
            LogError("Cannot CreateQuery, hr:%d", static_cast<int>(hr));
            return;
        }
        D3D9Verify(device->CreateQuery(D3DQUERYTYPE_OCCLUSION, &m_pQuery));
    }
    if (!m_pQuery)
        return;
    D3D9Verify(m_pQuery->Issue(D3DISSUE_BEGIN));
    // Also after a failed Issue: the read that follows finds out what the device made of it.
    m_bResultPending = true;
    m_nPixelCount = 0;
}

void CD3D9HardwareOcclusionQuery::EndQuery()
{
    if (m_pQuery)
        m_pQuery->Issue(D3DISSUE_END);
}

bool CD3D9HardwareOcclusionQuery::IsResultPending()
{
    if (!m_pQuery)
        return false;
    DWORD pixels = 0;
    const HRESULT hr = m_pQuery->GetData(&pixels, sizeof(pixels), 0);
    if (hr == S_FALSE)
        return true;
    if (hr == D3DERR_DEVICELOST)
    {
        m_nPixelCount = kPixelsAfterLoss;
        ReleaseQuery();
    }
    else if (hr == D3D_OK)
    {
        m_nPixelCount = pixels;
    }
    else
    {
        // No count will come: waiting is over, and the next fetch asks the
        // device again and answers false.
        return false;
    }
    m_bResultPending = false;
    return false;
}

bool CD3D9HardwareOcclusionQuery::FetchPixelCount(unsigned* count)
{
    if (!count)
    {
        LogError("FetchPixelCount: no place for the count");
        return false;
    }
    if (!m_pQuery)
        return false;
    if (!m_bResultPending)
    {
        *count = m_nPixelCount;
        return true;
    }
    DWORD pixels = 0;
    HRESULT hr;
    while ((hr = m_pQuery->GetData(&pixels, sizeof(pixels), D3DGETDATA_FLUSH)) == S_FALSE)
    {
    }
    if (hr == D3D_OK)
    {
        m_nPixelCount = pixels;
        *count = pixels;
        m_bResultPending = false;
        return true;
    }
    if (hr == D3DERR_DEVICELOST)
    {
        m_nPixelCount = 0;
        *count = 0;
        ReleaseQuery();
        m_bResultPending = false;
        return true;
    }
    // Any other answer brings no count; the query stays pending so that every
    // fetch until the next begin says so.
    D3D9Verify(hr, "Failed to GetData of an occlusion query");
    return false;
}

} // namespace kv
