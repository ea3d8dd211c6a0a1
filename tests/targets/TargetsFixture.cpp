#include "TargetsFixture.h"

#include <cstring>

SurfaceTarget::SurfaceTarget(std::vector<IDirect3DSurface9*> surfaces, unsigned width, unsigned height)
    : m_surfaces(std::move(surfaces))
{
    m_nWidth = width;
    m_nHeight = height;
    m_eFormat = kv::PF_X8R8G8B8;
    m_eTargetKind = TK_MULTI;
}

SurfaceTarget::~SurfaceTarget()
{
    m_pDepthBuffer = nullptr;
    for (IDirect3DSurface9* s : m_surfaces)
        if (s)
            s->Release();
}

bool SurfaceTarget::GetAttribute(const char* name, void* out)
{
    ++m_nAttributeQueries;
    if (std::strcmp(name, "DDBACKBUFFER") != 0)
        return false;
    IDirect3DSurface9** slots = static_cast<IDirect3DSurface9**>(out);
    for (size_t i = 0; i < m_surfaces.size() && i < 8; ++i)
        slots[i] = m_surfaces[i];
    return true;
}

bool SurfaceTarget::SetDepthTexture(kv::CTexture* texture)
{
    m_pDepthTexture = texture;
    return true;
}

void SurfaceTarget::detachDepthBuffer()
{
    if (m_pDepthBuffer)
        m_pDepthBuffer->_notifyRenderTargetDetached(this);
    m_pDepthBuffer = nullptr;
}

IDirect3DSurface9* TargetsTest::MakeSurface(unsigned width, unsigned height, D3DMULTISAMPLE_TYPE samples,
                                            D3DFORMAT format)
{
    IDirect3DSurface9* s = nullptr;
    EXPECT_EQ(D3D_OK, device->CreateRenderTarget(width, height, format, samples, 0, FALSE, &s, nullptr));
    return s;
}

ref_ptr<SurfaceTarget> TargetsTest::MakeTarget(unsigned width, unsigned height, unsigned count,
                                               D3DMULTISAMPLE_TYPE samples)
{
    std::vector<IDirect3DSurface9*> surfaces;
    for (unsigned i = 0; i < count; ++i)
        surfaces.push_back(MakeSurface(width, height, samples));
    ref_ptr<SurfaceTarget> t(new SurfaceTarget(surfaces, width, height));
    t->m_nFSAA = static_cast<unsigned char>(samples);
    return t;
}
