#include "engine/RenderTexture.h"
#include "engine/HardwarePixelBuffer.h"

namespace kv
{

CRenderTexture::CRenderTexture(CHardwarePixelBuffer* buffer, unsigned zoffset) : m_pBuffer(buffer), m_nZOffset(zoffset)
{
    m_eTargetKind = TK_RENDER_TEXTURE;
    if (buffer)
    {
        m_nWidth = buffer->getWidth();
        m_nHeight = buffer->getHeight();
        m_eFormat = buffer->getFormat();
    }
}

CRenderTexture::~CRenderTexture() {}

void CRenderTexture::SetAutoUpdate(bool autoUpdate)
{
    m_bAutoUpdate = autoUpdate;
}

void CRenderTexture::copyContentsToMemory(const PixelBox& dest, FrameBuffer)
{
    if (m_pBuffer)
        m_pBuffer->blitToMemory(Box(0, 0, 0, m_pBuffer->getWidth(), m_pBuffer->getHeight(), m_pBuffer->getDepth()),
                                dest);
}

} // namespace kv
