#include "RenderTargetsFixture.h"

#include "engine/Colour.h"
#include "engine/Viewport.h"

#include <d3dx9.h>

using namespace kv;

void RenderTargetsTest::SetUp()
{
    KvDeviceTest::SetUp();
    ASSERT_TRUE(kvdx::Available()) << "this suite must run with the recording d3dx9_43.dll";
    kvdx::Reset();
    char temp[MAX_PATH];
    GetTempPathA(MAX_PATH, temp);
    dir = std::string(temp) + "kv_rendertargets_" + ::testing::UnitTest::GetInstance()->current_test_info()->name();
    CreateDirectoryA(dir.c_str(), nullptr);
}

ref_ptr<CTexture> RenderTargetsTest::Target(unsigned size, unsigned char fsaa, PixelFormat format)
{
    return rs->CreateTextureManual(TEX_TYPE_2D, size, size, 1, 0, format, TU_RENDERTARGET, fsaa, false);
}

void RenderTargetsTest::Clear(CRenderTarget* target, uint32_t colour, const RECT* rect)
{
    const CColour c(colour >> 16 & 1, colour >> 8 & 1, colour & 1, 1.0f);
    const CViewport whole(target, 0.0f, 0.0f, 1.0f, 1.0f);
    const CViewport part =
        rect ? CViewport(target, static_cast<int>(rect->left), static_cast<int>(rect->top),
                         static_cast<int>(rect->right - rect->left), static_cast<int>(rect->bottom - rect->top))
             : whole;
    rs->_setViewport(part, 1, &c, 1.0f, 0);
}

void RenderTargetsTest::DrawOnWindow(CTexture* texture, unsigned columns)
{
    struct Vertex
    {
        float x, y, z, u, v;
    };
    // Half a pixel up and left: pixel centres then fall on texel centres.
    const float dx = 1.0f / kWidth, dy = 1.0f / kHeight, right = 2.0f * columns / kWidth - 1.0f;
    const Vertex quad[4] = {{-1 - dx, 1 + dy, 0.5f, 0, 0},
                            {right - dx, 1 + dy, 0.5f, 1, 0},
                            {-1 - dx, -1 + dy, 0.5f, 0, 1},
                            {right - dx, -1 + dy, 0.5f, 1, 1}};
    const VertexElement elements[] = {VertexElement(0, 0, VET_FLOAT3, VES_POSITION),
                                      VertexElement(0, 12, VET_FLOAT2, VES_TEXTURE_COORDINATES)};
    ref_ptr<CVertexDeclaration> declaration = rs->CreateVertexDeclaration(elements, 2);
    SamplerState point;
    point.minFilter = point.magFilter = FO_POINT;
    FixedFunctionColour();
    device->SetTextureStageState(0, D3DTSS_COLORARG1, D3DTA_TEXTURE);
    ASSERT_TRUE(rs->_beginFrame());
    rs->SetTexture(0, texture, point);
    rs->DrawPrimitiveUP(PT_TRIANGLE_STRIP, 4, quad, sizeof(Vertex), declaration.get(), 1);
    rs->_endFrame();
}

std::vector<uint32_t> RenderTargetsTest::ReadImage(const std::string& path, unsigned* width, unsigned* height)
{
    std::vector<uint32_t> pixels;
    D3DXIMAGE_INFO info;
    IDirect3DSurface9* surface = nullptr;
    D3DLOCKED_RECT locked;
    IDirect3DDevice9* device = kv::GetD3D9RenderSystem()->m_pD3D9Device;
    if (SUCCEEDED(D3DXGetImageInfoFromFileA(path.c_str(), &info)) &&
        SUCCEEDED(device->CreateOffscreenPlainSurface(info.Width, info.Height, D3DFMT_A8R8G8B8, D3DPOOL_SYSTEMMEM,
                                                      &surface, nullptr)) &&
        SUCCEEDED(
            D3DXLoadSurfaceFromFileA(surface, nullptr, nullptr, path.c_str(), nullptr, D3DX_FILTER_NONE, 0, nullptr)) &&
        SUCCEEDED(surface->LockRect(&locked, nullptr, D3DLOCK_READONLY)))
    {
        for (unsigned y = 0; y < info.Height; ++y)
            for (unsigned x = 0; x < info.Width; ++x)
                pixels.push_back(
                    reinterpret_cast<const uint32_t*>(static_cast<const uint8_t*>(locked.pBits) + y * locked.Pitch)[x] |
                    0xFF000000u);
        surface->UnlockRect();
        *width = info.Width;
        *height = info.Height;
    }
    if (surface)
        surface->Release();
    return pixels;
}

size_t CountNot(const std::vector<uint32_t>& pixels, unsigned width, unsigned from, unsigned to, uint32_t colour)
{
    size_t n = 0;
    for (size_t i = 0; i < pixels.size(); ++i)
        n += i % width >= from && i % width < to && (pixels[i] | 0xFF000000u) != (colour | 0xFF000000u);
    return n;
}
