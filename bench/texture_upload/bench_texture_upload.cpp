// What an upload of a 512 x 512 RGBA image costs through the texture's pixel
// buffer (blitFromMemory, whose layout already matches the surface's) against
// the same upload made straight on the device: LockRect of the whole surface,
// one memcpy a row, UnlockRect. Both write the same managed texture on one real
// device in one process, 256 uploads a round, taking turns round by round; the
// figure is the ratio of the medians. Allocations are counted with a replaced
// global operator new while the pixel buffer uploads: the matching road must
// make none.
#include "../Bench.h"
#include "D3D9HardwarePixelBuffer.h"
#include "D3D9RenderSystem.h"
#include "D3D9Texture.h"

#include "engine/Engine.h"
#include "engine/Log.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

namespace
{
std::atomic<bool> g_countAllocations(false);
std::atomic<uint64_t> g_allocations(0);

// Out of line, so the compiler does not pair the replaced operators with
// the library's allocation functions.
__attribute__((noinline)) void Release(void* p) noexcept
{
    std::free(p);
}
} // namespace

void* operator new(std::size_t size)
{
    if (g_countAllocations.load(std::memory_order_relaxed))
        g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void operator delete(void* p) noexcept
{
    Release(p);
}

void operator delete[](void* p) noexcept
{
    Release(p);
}

void operator delete(void* p, std::size_t) noexcept
{
    Release(p);
}

void operator delete[](void* p, std::size_t) noexcept
{
    Release(p);
}

namespace
{

using namespace kv;

const unsigned kSize = 512;
const unsigned kUploads = 256;
const unsigned kRounds = 9;

} // namespace

int main()
{
    SetLogEcho(false);
    EngineInit();
    kvbench::Host host;
    if (!kvbench::StartRenderSystem("bench_texture_upload", host))
        return 1;
    CRenderSystem* rs = host.rs;
    ref_ptr<CTexture> texture = rs->CreateTextureManual(TEX_TYPE_2D, kSize, kSize, 1, 0, PF_A8R8G8B8, 0, 0, false);
    CD3D9HardwarePixelBuffer* buffer =
        texture ? static_cast<CD3D9HardwarePixelBuffer*>(texture->getBuffer(0, 0)) : nullptr;
    IDirect3DSurface9* surface = buffer ? buffer->getSurface() : nullptr;
    if (!surface)
    {
        std::printf("bench_texture_upload: the texture could not be made\n");
        return 1;
    }

    // Two images taking turns, so no upload writes what is already there.
    std::vector<uint32_t> images[2];
    for (int i = 0; i < 2; ++i)
    {
        images[i].resize(kSize * kSize);
        for (unsigned p = 0; p < kSize * kSize; ++p)
            images[i][p] = 0xFF000000u | (p * 2654435761u + static_cast<unsigned>(i) * 40503u);
    }
    const Box whole(0, 0, 0, kSize, kSize, 1);
    PixelBox boxes[2] = {PixelBox(kSize, kSize, 1, PF_A8R8G8B8, images[0].data()),
                         PixelBox(kSize, kSize, 1, PF_A8R8G8B8, images[1].data())};

    auto plugin = [&] {
        for (unsigned i = 0; i < kUploads; ++i)
            buffer->blitFromMemory(boxes[i & 1], whole);
    };
    bool rawOk = true;
    auto raw = [&] {
        for (unsigned i = 0; i < kUploads; ++i)
        {
            D3DLOCKED_RECT locked;
            if (FAILED(surface->LockRect(&locked, nullptr, 0)))
            {
                rawOk = false;
                return;
            }
            const uint8_t* from = reinterpret_cast<const uint8_t*>(images[i & 1].data());
            uint8_t* to = static_cast<uint8_t*>(locked.pBits);
            for (unsigned row = 0; row < kSize; ++row)
                std::memcpy(to + std::size_t(row) * locked.Pitch, from + std::size_t(row) * kSize * 4, kSize * 4);
            surface->UnlockRect();
        }
    };

    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    std::vector<double> pluginTimes, rawTimes;
    uint64_t allocations = 0, uploads = 0;
    for (unsigned round = 0; round < kRounds + 1; ++round)
    {
        for (int turn = 0; turn < 2; ++turn)
        {
            const int way = turn ^ static_cast<int>(round & 1);
            LARGE_INTEGER start, end;
            if (way == 0)
            {
                g_allocations = 0;
                g_countAllocations = true;
                QueryPerformanceCounter(&start);
                plugin();
                QueryPerformanceCounter(&end);
                g_countAllocations = false;
                allocations += g_allocations;
                uploads += kUploads;
            }
            else
            {
                QueryPerformanceCounter(&start);
                raw();
                QueryPerformanceCounter(&end);
            }
            // The first round warms both roads up and is not counted.
            if (round == 0)
                continue;
            const double seconds =
                static_cast<double>(end.QuadPart - start.QuadPart) / static_cast<double>(frequency.QuadPart);
            (way == 0 ? pluginTimes : rawTimes).push_back(seconds);
        }
    }

    // Both roads must have written the texture: the last upload's image is in it.
    std::vector<uint32_t> back(kSize * kSize);
    buffer->blitToMemory(whole, PixelBox(kSize, kSize, 1, PF_A8R8G8B8, back.data()));
    const bool written = rawOk && back == images[(kUploads - 1) & 1] && GetLogTexts(LOG_ERROR).empty();

    const double pluginMs = kvbench::Median(pluginTimes) * 1000.0, rawMs = kvbench::Median(rawTimes) * 1000.0;
    std::printf("BENCH texture_upload.plugin_ms %.3f ms\n", pluginMs);
    std::printf("BENCH texture_upload.raw_ms %.3f ms\n", rawMs);
    std::printf("BENCH texture_upload.time_vs_raw %.3f x\n", pluginMs / rawMs);
    std::printf("BENCH texture_upload.allocations_per_upload %.3f count\n",
                static_cast<double>(allocations) / static_cast<double>(uploads));
    std::printf("bench_texture_upload: %u uploads of %ux%u a round, %u rounds each way, content %s\n", kUploads, kSize,
                kSize, kRounds, written ? "checked" : "WRONG");

    texture = nullptr;
    kvbench::StopRenderSystem(host);
    return written ? 0 : 1;
}
