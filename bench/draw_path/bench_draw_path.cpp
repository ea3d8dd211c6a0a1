// What a draw costs on the CPU through the render system against the same draw
// made straight on the device, on one real device in one process.
//
// A frame is N indexed draws (N = 100, 1,000, 10,000) of small meshes, taking
// turns between two vertex buffers so every draw binds its stream anew:
//   plugin  SetVertexBuffer, SetIndexBuffer and DrawPrimitive of the render
//           system, as the engine calls them (shadows, statistics and all);
//   direct  the device calls those draws need: the declaration and indices once
//           a frame, then SetStreamSource and DrawIndexedPrimitive per draw.
// The triangles have no area, so the rasteriser adds nothing; what is timed is
// the submission loop on the calling thread, both ways taking turns: a round
// times one frame each way, the order swapping every round, and a ratio is the
// median over pairs of rounds of the geometric mean of their two ratios, so that
// a frame's place in its round cancels and a load that comes and goes moves both
// sides alike. Allocations are
// counted with a replaced global operator new while the plug-in's frames run:
// the draw path must make none.
//
// Last, the device's draw-path methods are swapped for ones that answer at once,
// and both ways run again: what is left is the plug-in's own work per draw (its
// shadows, statistics and calls), apart from what Wine's Direct3D costs.
#include "../Bench.h"
#include "D3D9HardwareIndexBuffer.h"
#include "D3D9HardwareVertexBuffer.h"
#include "D3D9RenderSystem.h"
#include "D3D9VertexDeclaration.h"

#include "engine/Engine.h"
#include "engine/IndexData.h"
#include "engine/Log.h"
#include "engine/Timer.h"
#include "engine/VertexData.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

extern "C" const unsigned kvDrawPathSlots[];
extern "C" const unsigned kvDrawPathSlotCount;

namespace
{
std::atomic<bool> g_countAllocations(false);
std::atomic<uint64_t> g_allocations(0);
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
    std::free(p);
}

void operator delete[](void* p) noexcept
{
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}

void operator delete[](void* p, std::size_t) noexcept
{
    std::free(p);
}

namespace
{

using namespace kv;

// Rounds after two of warming up; an even number, so that both orders come equally often.
const unsigned kRounds = 30;
const unsigned kIndexCount = 6;

struct Vertex
{
    float x, y, z;
    uint32_t colour;
};

double Seconds(const LARGE_INTEGER& a, const LARGE_INTEGER& b, const LARGE_INTEGER& frequency)
{
    return static_cast<double>(b.QuadPart - a.QuadPart) / static_cast<double>(frequency.QuadPart);
}

// Waits until the device has worked off everything queued, so no frame pays
// for the one before it.
void WaitForIdle(IDirect3DQuery9* query)
{
    if (!query)
        return;
    query->Issue(D3DISSUE_END);
    while (query->GetData(nullptr, 0, D3DGETDATA_FLUSH) == S_FALSE)
        SwitchToThread();
}

// Stand-ins for the device's draw-path methods (kvDrawPathSlots, in that order)
// that do nothing and succeed.
HRESULT STDMETHODCALLTYPE NoSetVertexDeclaration(IDirect3DDevice9*, IDirect3DVertexDeclaration9*)
{
    return D3D_OK;
}
HRESULT STDMETHODCALLTYPE NoSetStreamSource(IDirect3DDevice9*, UINT, IDirect3DVertexBuffer9*, UINT, UINT)
{
    return D3D_OK;
}
HRESULT STDMETHODCALLTYPE NoSetStreamSourceFreq(IDirect3DDevice9*, UINT, UINT)
{
    return D3D_OK;
}
HRESULT STDMETHODCALLTYPE NoSetIndices(IDirect3DDevice9*, IDirect3DIndexBuffer9*)
{
    return D3D_OK;
}
HRESULT STDMETHODCALLTYPE NoDrawIndexedPrimitive(IDirect3DDevice9*, D3DPRIMITIVETYPE, INT, UINT, UINT, UINT, UINT)
{
    return D3D_OK;
}

// Swaps entries of a COM method table; answers false when the table cannot be written.
bool SwapSlots(IDirect3DDevice9* device, void* const* entries, void** previous)
{
    void** table = *reinterpret_cast<void***>(device);
    for (unsigned i = 0; i < kvDrawPathSlotCount; ++i)
    {
        void** slot = &table[kvDrawPathSlots[i]];
        DWORD protection = 0;
        if (!VirtualProtect(slot, sizeof(void*), PAGE_READWRITE, &protection))
            return false;
        previous[i] = *slot;
        *slot = entries[i];
        VirtualProtect(slot, sizeof(void*), protection, &protection);
    }
    return true;
}

} // namespace

int main()
{
    SetLogEcho(false);
    EngineInit();
    kvbench::Host host;
    if (!kvbench::StartRenderSystem("bench_draw_path", host))
        return 1;
    CRenderSystem* rs = host.rs;
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    IDirect3DDevice9* device = d3d->m_pD3D9Device;

    // Two meshes of four vertices on one point: zero-area triangles.
    const VertexElement elements[] = {VertexElement(0, 0, VET_FLOAT3, VES_POSITION),
                                      VertexElement(0, 12, VET_COLOUR, VES_COLOUR)};
    ref_ptr<CVertexDeclaration> declaration = rs->CreateVertexDeclaration(elements, 2);
    const Vertex vertices[4] = {};
    const uint16_t indices[kIndexCount] = {0, 1, 2, 0, 2, 3};
    ref_ptr<CHardwareVertexBuffer> buffers[2] = {
        rs->CreateHardwareVertexBuffer(sizeof(Vertex), 4, CHardwareBuffer::USAGE_STATIC, vertices),
        rs->CreateHardwareVertexBuffer(sizeof(Vertex), 4, CHardwareBuffer::USAGE_STATIC, vertices)};
    ref_ptr<CHardwareIndexBuffer> indexBuffer = rs->CreateHardwareIndexBuffer(
        CHardwareIndexBuffer::IT_16BIT, kIndexCount, CHardwareBuffer::USAGE_STATIC, indices);
    ref_ptr<CVertexData> data[2];
    for (int i = 0; i < 2; ++i)
    {
        data[i] = rs->CreateVertexData();
        data[i]->m_pDeclaration = declaration;
        data[i]->m_pBuffer = buffers[i];
        data[i]->m_nVertexCount = 4;
    }
    ref_ptr<CIndexData> indexData = rs->CreateIndexData();
    indexData->m_pBuffer = indexBuffer;
    indexData->m_nIndexCount = kIndexCount;

    IDirect3DVertexDeclaration9* nativeDeclaration =
        static_cast<CD3D9VertexDeclaration*>(declaration.get())->m_pD3D9VertexDeclaration;
    IDirect3DVertexBuffer9* nativeBuffers[2] = {
        static_cast<CD3D9HardwareVertexBuffer*>(buffers[0].get())->m_pD3D9VertexBuffer,
        static_cast<CD3D9HardwareVertexBuffer*>(buffers[1].get())->m_pD3D9VertexBuffer};
    IDirect3DIndexBuffer9* nativeIndices =
        static_cast<CD3D9HardwareIndexBuffer*>(indexBuffer.get())->m_pD3D9IndexBuffer;
    if (!nativeDeclaration || !nativeBuffers[0] || !nativeBuffers[1] || !nativeIndices)
    {
        std::printf("bench_draw_path: the buffers could not be made\n");
        return 1;
    }
    d3d->_setRenderState(D3DRS_CULLMODE, D3DCULL_NONE);
    d3d->_setRenderState(D3DRS_LIGHTING, FALSE);

    CVertexData* const dataOf[2] = {data[0].get(), data[1].get()};
    CIndexData* const indexDataPtr = indexData.get();
    CHardwareIndexBuffer* const indexBufferPtr = indexBuffer.get();

    auto pluginFrame = [&](unsigned draws) {
        for (unsigned i = 0; i < draws; ++i)
        {
            CVertexData* d = dataOf[i & 1];
            rs->SetVertexBuffer(d);
            rs->SetIndexBuffer(indexBufferPtr);
            rs->DrawPrimitive(PT_TRIANGLE_LIST, d, indexDataPtr, 1, false);
        }
    };
    auto directFrame = [&](unsigned draws) {
        device->SetVertexDeclaration(nativeDeclaration);
        device->SetIndices(nativeIndices);
        for (unsigned i = 0; i < draws; ++i)
        {
            device->SetStreamSource(0, nativeBuffers[i & 1], 0, sizeof(Vertex));
            device->DrawIndexedPrimitive(D3DPT_TRIANGLELIST, 0, 0, 4, 0, 2);
        }
    };

    IDirect3DQuery9* idle = nullptr;
    device->CreateQuery(D3DQUERYTYPE_EVENT, &idle);

    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    const unsigned counts[] = {100, 1000, 10000};
    uint64_t pluginAllocations = 0;
    uint64_t pluginFrames = 0;
    bool drawsCounted = true;
    for (unsigned draws : counts)
    {
        std::vector<double> plugin, direct;
        for (unsigned round = 0; round < kRounds + 2; ++round)
        {
            // Odd rounds run the direct way first.
            for (int turn = 0; turn < 2; ++turn)
            {
                const int way = turn ^ static_cast<int>(round & 1);
                // Each frame starts from a device that knows nothing the other
                // way left behind.
                d3d->_resetStateCaches();
                d3d->_setRenderState(D3DRS_CULLMODE, D3DCULL_NONE);
                d3d->_setRenderState(D3DRS_LIGHTING, FALSE);
                GetTimer()->Reset();
                WaitForIdle(idle);
                rs->_beginFrame();
                LARGE_INTEGER start, end;
                if (way == 0)
                {
                    g_allocations = 0;
                    g_countAllocations = true;
                    QueryPerformanceCounter(&start);
                    pluginFrame(draws);
                    QueryPerformanceCounter(&end);
                    g_countAllocations = false;
                    pluginAllocations += g_allocations;
                    ++pluginFrames;
                    drawsCounted = drawsCounted && GetTimer()->m_nDrawCallCount == draws;
                }
                else
                {
                    QueryPerformanceCounter(&start);
                    directFrame(draws);
                    QueryPerformanceCounter(&end);
                }
                rs->_endFrame();
                device->Present(nullptr, nullptr, nullptr, nullptr);
                // The first two rounds warm caches and the driver's queues.
                if (round >= 2)
                    (way == 0 ? plugin : direct).push_back(Seconds(start, end, frequency) * 1e9 / draws);
            }
        }
        const double p = kvbench::Median(plugin);
        const double d = kvbench::Median(direct);
        std::printf("BENCH draw_path.plugin_%u %.1f ns/draw\n", draws, p);
        std::printf("BENCH draw_path.direct_%u %.1f ns/draw\n", draws, d);
        // A repetition is two rounds, one in each order: the geometric mean of their
        // ratios, in which the place of a frame in its round cancels.
        std::vector<double> ratios;
        for (size_t r = 0; r + 1 < plugin.size(); r += 2)
            ratios.push_back(std::sqrt((plugin[r] / direct[r]) * (plugin[r + 1] / direct[r + 1])));
        std::printf("BENCH draw_path.ratio_%u %.3f x\n", draws, kvbench::Median(ratios));
    }

    // The plug-in's own work: the same frames on a device whose draw-path methods
    // answer at once.
    void* stubs[] = {reinterpret_cast<void*>(&NoSetVertexDeclaration), reinterpret_cast<void*>(&NoSetStreamSource),
                     reinterpret_cast<void*>(&NoSetStreamSourceFreq), reinterpret_cast<void*>(&NoSetIndices),
                     reinterpret_cast<void*>(&NoDrawIndexedPrimitive)};
    void* saved[sizeof(stubs) / sizeof(stubs[0])] = {};
    static_assert(sizeof(stubs) / sizeof(stubs[0]) == 5, "one stand-in per slot");
    if (kvDrawPathSlotCount == 5 && SwapSlots(device, stubs, saved))
    {
        const unsigned draws = 10000;
        std::vector<double> plugin, direct;
        for (unsigned round = 0; round < kRounds + 2; ++round)
        {
            for (int turn = 0; turn < 2; ++turn)
            {
                const int way = turn ^ static_cast<int>(round & 1);
                d3d->_resetStateCaches();
                LARGE_INTEGER start, end;
                QueryPerformanceCounter(&start);
                if (way == 0)
                    pluginFrame(draws);
                else
                    directFrame(draws);
                QueryPerformanceCounter(&end);
                if (round >= 2)
                    (way == 0 ? plugin : direct).push_back(Seconds(start, end, frequency) * 1e9 / draws);
            }
        }
        SwapSlots(device, saved, stubs);
        std::printf("BENCH draw_path.plugin_own_work %.1f ns/draw\n",
                    kvbench::Median(plugin) - kvbench::Median(direct));
    }
    else
        std::printf("bench_draw_path: cannot swap the device's draw-path methods\n");

    if (!drawsCounted)
        std::printf("bench_draw_path: the frame statistics missed draws\n");
    std::printf("BENCH draw_path.allocations %.2f allocations/frame\n",
                pluginFrames ? static_cast<double>(pluginAllocations) / pluginFrames : 0.0);

    if (idle)
        idle->Release();
    declaration = nullptr;
    buffers[0] = buffers[1] = nullptr;
    indexBuffer = nullptr;
    data[0] = data[1] = nullptr;
    indexData = nullptr;
    kvbench::StopRenderSystem(host);
    // Figures of a frame whose draws were not all counted describe some other work.
    return drawsCounted ? 0 : 1;
}
