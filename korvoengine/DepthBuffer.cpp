#include "engine/DepthBuffer.h"

namespace kv
{

CDepthBuffer::CDepthBuffer(unsigned short poolId, unsigned short bitDepth, unsigned width, unsigned height, bool manual)
    : m_nPoolId(poolId), m_nBitDepth(bitDepth), m_nWidth(width), m_nHeight(height), m_bHasStencil(false),
      m_bManual(manual)
{
}

CDepthBuffer::~CDepthBuffer() {}

unsigned short CDepthBuffer::getPoolId() const
{
    return m_nPoolId;
}
unsigned short CDepthBuffer::getBitDepth() const
{
    return m_nBitDepth;
}
unsigned CDepthBuffer::getWidth() const
{
    return m_nWidth;
}
unsigned CDepthBuffer::getHeight() const
{
    return m_nHeight;
}
bool CDepthBuffer::hasStencil() const
{
    return m_bHasStencil;
}

void CDepthBuffer::_notifyRenderTargetAttached(CRenderTarget* target)
{
    m_attachedTargets.insert(target);
}

void CDepthBuffer::_notifyRenderTargetDetached(CRenderTarget* target)
{
    m_attachedTargets.erase(target);
}

} // namespace kv
