#pragma once
// One native depth-stencil surface behind the engine's depth buffer. The render
// system keeps no list of these: a target holds its own, and the one bound last
// is shared with the next target that fits it.
#include "D3D9Prerequisites.h"

#include "engine/DepthBuffer.h"

namespace kv
{

class CD3D9DepthBuffer : public CDepthBuffer
{
public:
    // Takes over the caller's reference to surface. A manual buffer wraps a
    // surface that somebody else releases.
    CD3D9DepthBuffer(unsigned short poolId, IDirect3DSurface9* surface, D3DFORMAT format, unsigned width,
                     unsigned height, D3DMULTISAMPLE_TYPE multiSampleType, unsigned multiSampleQuality, bool manual);
    ~CD3D9DepthBuffer() override;

    bool hasStencil() const override;
    // Whether this buffer can serve as the depth surface of target: the depth
    // format that goes with the target's colour surface, the same multisampling,
    // and at least the target's size.
    bool isCompatible(CRenderTarget* target) const override;

    // No reference added.
    IDirect3DSurface9* getSurface() const { return m_pSurface; }

    // Bits of depth (with stencil) and whether there is a stencil, by format;
    // 0 and false for a format that is not a depth format.
    static unsigned short BitDepthOf(D3DFORMAT format, bool* stencil);

    IDirect3DSurface9* m_pSurface;
    D3DMULTISAMPLE_TYPE m_eMultiSampleType;
    unsigned m_nMultiSampleQuality;
    D3DFORMAT m_eFormat;

private:
    // What the buffer counts in g_nDepthBufferSizeInBytes.
    uint32_t SizeInBytes() const;
};

} // namespace kv
