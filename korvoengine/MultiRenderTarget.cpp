#include "engine/MultiRenderTarget.h"

namespace kv
{

CMultiRenderTarget::CMultiRenderTarget()
{
    m_eTargetKind = TK_MULTI;
}

CMultiRenderTarget::~CMultiRenderTarget() {}

void CMultiRenderTarget::SetAutoUpdate(bool autoUpdate)
{
    m_bAutoUpdate = autoUpdate;
}

void CMultiRenderTarget::bindSurface(CRenderTexture* const* targets, int count)
{
    if (!targets)
        return;
    for (int i = 0; i < count && i < MAX_SURFACES; ++i)
        bindSurfaceImpl(static_cast<unsigned>(i), targets[i]);
}

void CMultiRenderTarget::unbindSurface(unsigned index)
{
    if (index < MAX_SURFACES)
        unbindSurfaceImpl(index);
}

} // namespace kv
