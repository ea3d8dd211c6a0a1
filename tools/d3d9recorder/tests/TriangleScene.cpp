#include "TriangleScene.h"

#include <cstdio>
#include <cstring>

namespace scene
{

namespace
{

struct Vertex
{
    float x, y, z, rhw;
    D3DCOLOR colour;
};

std::string Failed(const char* what, HRESULT hr)
{
    char buf[128];
    std::snprintf(buf, sizeof buf, "%s failed: 0x%08lx", what, static_cast<unsigned long>(hr));
    return buf;
}

template <class T>
void Drop(T*& p)
{
    if (p)
        p->Release();
    p = nullptr;
}

} // namespace

HWND TestWindow()
{
    static HWND hwnd = [] {
        WNDCLASSA wc;
        std::memset(&wc, 0, sizeof wc);
        wc.lpfnWndProc = DefWindowProcA;
        wc.hInstance = GetModuleHandleA(nullptr);
        wc.lpszClassName = "KvProxyTestWindow";
        RegisterClassA(&wc);
        return CreateWindowExA(0, "KvProxyTestWindow", "proxy test", WS_OVERLAPPEDWINDOW, 0, 0, 128, 128, nullptr,
                               nullptr, wc.hInstance, nullptr);
    }();
    return hwnd;
}

bool Draw(IDirect3D9* d3d, std::vector<uint32_t>* pixels, std::string* error)
{
    D3DPRESENT_PARAMETERS pp;
    std::memset(&pp, 0, sizeof pp);
    pp.BackBufferWidth = kSize;
    pp.BackBufferHeight = kSize;
    pp.BackBufferFormat = D3DFMT_X8R8G8B8;
    pp.BackBufferCount = 1;
    pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
    pp.hDeviceWindow = TestWindow();
    pp.Windowed = TRUE;
    pp.PresentationInterval = D3DPRESENT_INTERVAL_IMMEDIATE;

    IDirect3DDevice9* device = nullptr;
    IDirect3DSurface9* target = nullptr;
    IDirect3DSurface9* readback = nullptr;
    HRESULT hr =
        d3d->CreateDevice(0, D3DDEVTYPE_HAL, pp.hDeviceWindow, D3DCREATE_HARDWARE_VERTEXPROCESSING, &pp, &device);
    if (FAILED(hr))
    {
        *error = Failed("CreateDevice", hr);
        return false;
    }
    bool ok = false;
    do
    {
        hr = device->CreateRenderTarget(kSize, kSize, D3DFMT_X8R8G8B8, D3DMULTISAMPLE_NONE, 0, FALSE, &target, nullptr);
        if (FAILED(hr))
        {
            *error = Failed("CreateRenderTarget", hr);
            break;
        }
        hr = device->CreateOffscreenPlainSurface(kSize, kSize, D3DFMT_X8R8G8B8, D3DPOOL_SYSTEMMEM, &readback, nullptr);
        if (FAILED(hr))
        {
            *error = Failed("CreateOffscreenPlainSurface", hr);
            break;
        }
        device->SetRenderTarget(0, target);
        device->Clear(0, nullptr, D3DCLEAR_TARGET, 0xFF000000u | kClearColour, 1.0f, 0);
        if (FAILED(hr = device->BeginScene()))
        {
            *error = Failed("BeginScene", hr);
            break;
        }
        device->SetRenderState(D3DRS_LIGHTING, FALSE);
        device->SetRenderState(D3DRS_CULLMODE, D3DCULL_NONE);
        device->SetRenderState(D3DRS_ZENABLE, D3DZB_FALSE);
        device->SetFVF(D3DFVF_XYZRHW | D3DFVF_DIFFUSE);
        const float s = static_cast<float>(kSize);
        // Upper-left half in one colour, the lower-right corner shaded between three colours,
        // so a single wrong pixel anywhere shows in the comparison.
        const Vertex solid[3] = {{0, 0, 0.5f, 1, 0xFF000000u | kSolidColour},
                                 {s, 0, 0.5f, 1, 0xFF000000u | kSolidColour},
                                 {0, s, 0.5f, 1, 0xFF000000u | kSolidColour}};
        const Vertex shaded[3] = {
            {s, s * 0.25f, 0.5f, 1, 0xFF00FF00u}, {s, s, 0.5f, 1, 0xFFFFFFFFu}, {s * 0.25f, s, 0.5f, 1, 0xFFFF00FFu}};
        hr = device->DrawPrimitiveUP(D3DPT_TRIANGLELIST, 1, solid, sizeof(Vertex));
        if (FAILED(hr))
        {
            *error = Failed("DrawPrimitiveUP", hr);
            device->EndScene();
            break;
        }
        hr = device->DrawPrimitiveUP(D3DPT_TRIANGLELIST, 1, shaded, sizeof(Vertex));
        if (FAILED(hr))
        {
            *error = Failed("DrawPrimitiveUP", hr);
            device->EndScene();
            break;
        }
        device->EndScene();
        if (FAILED(hr = device->GetRenderTargetData(target, readback)))
        {
            *error = Failed("GetRenderTargetData", hr);
            break;
        }
        D3DLOCKED_RECT locked;
        if (FAILED(hr = readback->LockRect(&locked, nullptr, D3DLOCK_READONLY)))
        {
            *error = Failed("LockRect", hr);
            break;
        }
        pixels->assign(kSize * kSize, 0);
        for (unsigned y = 0; y < kSize; ++y)
        {
            const uint32_t* row =
                reinterpret_cast<const uint32_t*>(static_cast<const char*>(locked.pBits) + y * locked.Pitch);
            for (unsigned x = 0; x < kSize; ++x)
                (*pixels)[y * kSize + x] = row[x] & 0x00FFFFFFu;
        }
        readback->UnlockRect();
        ok = true;
    } while (false);
    Drop(readback);
    Drop(target);
    Drop(device);
    return ok;
}

std::string KnownPixelMismatches(const std::vector<uint32_t>& px)
{
    if (px.size() != kSize * kSize)
        return "no image";
    std::string out;
    auto expect = [&](unsigned x, unsigned y, bool ok, const char* what) {
        if (ok)
            return;
        char buf[96];
        std::snprintf(buf, sizeof buf, "(%u, %u) = 0x%06x, expected %s\n", x, y, At(px, x, y), what);
        out += buf;
    };
    expect(2, 2, At(px, 2, 2) == kSolidColour, "red");
    expect(40, 10, At(px, 40, 10) == kSolidColour, "red");
    expect(10, 40, At(px, 10, 40) == kSolidColour, "red");
    // Right of the solid half and above the shaded part, and its mirror image.
    expect(50, 20, At(px, 50, 20) == kClearColour, "blue");
    expect(20, 50, At(px, 20, 50) == kClearColour, "blue");
    // Near the white corner of the shaded triangle every channel is bright.
    const uint32_t c = At(px, 62, 62);
    expect(62, 62, ((c >> 16) & 0xFF) > 0xC0 && ((c >> 8) & 0xFF) > 0xC0 && (c & 0xFF) > 0xC0, "near white");
    return out;
}

} // namespace scene
