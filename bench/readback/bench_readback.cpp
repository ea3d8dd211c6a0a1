// What a read-back of a 1024 x 768 render target costs through the render
// system's BeginGetRenderTargetData / EndGetRenderTargetData, against the same
// copy made straight on the device: GetRenderTargetData into a system-memory
// surface made for each read-back, and into one surface kept for all. Each
// road copies, locks, reads a pixel and unlocks; 100 read-backs a round on one
// device; the figures are the medians of single read-backs.
// The render system's surfaces are counted from its map, which gains one
// entry for each surface it makes and never loses one.
#include "../Bench.h"
#include "D3D9HardwarePixelBuffer.h"
#include "D3D9RenderSystem.h"

#include "engine/Colour.h"
#include "engine/Engine.h"
#include "engine/Log.h"
#include "engine/RenderTarget.h"
#include "engine/Texture.h"
#include "engine/Viewport.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <vector>

namespace
{

using namespace kv;

const unsigned kWidth = 1024, kHeight = 768;
const unsigned kReadBacks = 100;
const unsigned kRounds = 5;
const uint32_t kColour = 0xFF3366CC;

} // namespace

int main()
{
    SetLogEcho(false);
    EngineInit();
    kvbench::Host host;
    if (!kvbench::StartRenderSystem("bench_readback", host))
        return 1;
    CRenderSystem* rs = host.rs;
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    IDirect3DDevice9* device = d3d->m_pD3D9Device;
    ref_ptr<CTexture> texture =
        rs->CreateTextureManual(TEX_TYPE_2D, kWidth, kHeight, 1, 0, PF_A8R8G8B8, TU_RENDERTARGET, 0, false);
    CD3D9HardwarePixelBuffer* buffer =
        texture ? static_cast<CD3D9HardwarePixelBuffer*>(texture->getBuffer(0, 0)) : nullptr;
    IDirect3DSurface9* target = buffer ? buffer->getSurface() : nullptr;
    IDirect3DSurface9* kept = nullptr;
    if (!target || FAILED(device->CreateOffscreenPlainSurface(kWidth, kHeight, D3DFMT_A8R8G8B8, D3DPOOL_SYSTEMMEM,
                                                              &kept, nullptr)))
    {
        std::printf("bench_readback: the render target could not be made\n");
        return 1;
    }
    const CColour colour(0.2f, 0.4f, 0.8f, 1.0f);
    rs->_setViewport(CViewport(buffer->getRenderTarget(0), 0.0f, 0.0f, 1.0f, 1.0f), 1, &colour, 1.0f, 0);

    // Every road reads the last pixel of what it copied; all must see the clear.
    bool right = true;
    auto check = [&](const void* bits, int pitch) {
        const uint8_t* row = static_cast<const uint8_t*>(bits) + static_cast<size_t>(pitch) * (kHeight - 1);
        right = right && reinterpret_cast<const uint32_t*>(row)[kWidth - 1] == kColour;
    };
    auto raw = [&](IDirect3DSurface9* copy) {
        D3DLOCKED_RECT locked;
        if (FAILED(device->GetRenderTargetData(target, copy)) || FAILED(copy->LockRect(&locked, nullptr, 0)))
        {
            right = false;
            return;
        }
        check(locked.pBits, locked.Pitch);
        copy->UnlockRect();
    };
    const std::function<void()> roads[3] = {
        [&] {
            void* bits = nullptr;
            int pitch = 0;
            if (!rs->BeginGetRenderTargetData(buffer, &bits, &pitch))
            {
                right = false;
                return;
            }
            check(bits, pitch);
            rs->EndGetRenderTargetData();
        },
        [&] {
            IDirect3DSurface9* made = nullptr;
            if (FAILED(device->CreateOffscreenPlainSurface(kWidth, kHeight, D3DFMT_A8R8G8B8, D3DPOOL_SYSTEMMEM, &made,
                                                           nullptr)))
            {
                right = false;
                return;
            }
            raw(made);
            made->Release();
        },
        [&] { raw(kept); },
    };

    // Each read-back timed alone, the roads taking turns read-back by
    // read-back, so that the load of other processes falls on all three alike.
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    std::vector<double> times[3];
    for (unsigned round = 0; round < kRounds + 1; ++round)
    {
        for (unsigned i = 0; i < kReadBacks; ++i)
        {
            for (unsigned turn = 0; turn < 3; ++turn)
            {
                const unsigned road = (turn + i) % 3;
                LARGE_INTEGER start, end;
                QueryPerformanceCounter(&start);
                roads[road]();
                QueryPerformanceCounter(&end);
                // The first round warms every road up and is not counted.
                if (round > 0)
                    times[road].push_back(static_cast<double>(end.QuadPart - start.QuadPart) * 1000.0 /
                                          static_cast<double>(frequency.QuadPart));
            }
        }
    }

    const double plugin = kvbench::Median(times[0]), made = kvbench::Median(times[1]),
                 keptMs = kvbench::Median(times[2]);
    std::printf("BENCH readback.plugin_ms %.3f ms\n", plugin);
    std::printf("BENCH readback.surface_made_each_time_ms %.3f ms\n", made);
    std::printf("BENCH readback.kept_surface_ms %.3f ms\n", keptMs);
    std::printf("BENCH readback.time_vs_kept_surface %.3f x\n", plugin / keptMs);
    std::printf("BENCH readback.surfaces_made %u count\n", static_cast<unsigned>(d3d->m_mapReadbackSurfaces.size()));
    const bool clean = right && GetLogTexts(LOG_ERROR).empty();
    std::printf("bench_readback: %u read-backs of %ux%u a round, %u rounds each way, content %s\n", kReadBacks, kWidth,
                kHeight, kRounds, clean ? "checked" : "WRONG");

    kept->Release();
    texture = nullptr;
    kvbench::StopRenderSystem(host);
    return clean ? 0 : 1;
}
