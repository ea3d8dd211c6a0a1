#include "engine/RenderTarget.h"
#include "engine/DepthBuffer.h"
#include "engine/Texture.h"

namespace kv
{

CRenderTarget::CRenderTarget()
    : m_bActive(true), m_eTargetKind(TK_WINDOW), m_nWidth(0), m_nHeight(0), m_eFormat(PF_UNKNOWN), m_nDepthPoolId(1),
      m_bHwGamma(false), m_nFSAA(0), m_bAutoUpdate(true)
{
}

CRenderTarget::~CRenderTarget() {}

CViewport& CRenderTarget::addViewport(CCamera* camera, float left, float top, float width, float height)
{
    m_viewports.emplace_back(this, left, top, width, height, camera);
    return m_viewports.back();
}

bool CRenderTarget::getStencilEnabled()
{
    return m_pDepthBuffer && m_pDepthBuffer->hasStencil();
}

bool CRenderTarget::attachDepthBuffer(CDepthBuffer* buffer)
{
    if (!buffer || !buffer->isCompatible(this))
        return false;
    // Held while the old buffer is detached, in case that drops the last other reference.
    ref_ptr<CDepthBuffer> keep(buffer);
    detachDepthBuffer();
    m_pDepthBuffer = buffer;
    buffer->_notifyRenderTargetAttached(this);
    return true;
}

void CRenderTarget::Update()
{
    if (_beginUpdate())
        _endUpdate();
}

void CRenderTarget::SetAutoUpdate(bool autoUpdate)
{
    m_bAutoUpdate = autoUpdate;
}

} // namespace kv
