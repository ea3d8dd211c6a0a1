// What the render system's state shadows cost and spare on a real device.
//
// A scripted engine frame of 1,000 draws, each setting a full material (depth,
// culling, colour writes, blending, stencil switch, depth bias, and the filters
// and address modes of two samplers: about 25 device states), where each
// material differs from the one before in a few settings only. The frame runs
// three ways in one process on one device:
//   plugin   through the render system's setters, as the engine calls them;
//   naive    every state of every material straight to the device;
//   minimal  a call list deduplicated beforehand: only the states that differ
//            from what the device holds;
//   filtered the naive list through a plain array of the device's values, one
//            comparison per state: the least that filtering as it goes costs.
// Device calls are counted at the device's own method table, so whoever makes
// them is counted the same way. Times are taken twice: of whole frames, each
// material followed by its draw, and of state setting alone. A round times each
// way once, the ways taking turns in first place; in a rotation of rounds every
// way takes every place once, so the mean times of a rotation hold no advantage
// of place. A ratio is the median over rotations of the ratio of their means, so
// that a load that comes and goes moves both sides alike. Whole frames are
// measured in five runs of seven rotations, each run judged on its own.
//
// The floor of state setting is what the engine's interface costs by itself:
// the same materials set through a render system whose setters are empty, so
// that only the virtual calls are left (the engine's own _setTextureUnitFiltering
// included, with its three calls). No render system can set the states for less
// than the minimal call list plus those calls. For whole frames the floor is the
// minimal frame plus what those calls add to a frame of bare draws. The filter
// floor adds those calls to the filtered way instead: any render system that
// compares each state as it is set, behind this interface, costs at least that.
#include "../Bench.h"
#include "D3D9RenderSystem.h"

#include "engine/DeviceCapabilities.h"
#include "engine/Log.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

extern "C" const unsigned kvSetRenderStateSlot;
extern "C" const unsigned kvSetSamplerStateSlot;

namespace
{

using namespace kv;

const unsigned kDraws = 1000;
const unsigned kWarmFrames = 3;
const unsigned kRuns = 5;
// Per run and kind of frame: rotations, in each of which every way takes every place once.
const unsigned kRotations = 7;
// Rounds of the repeated material.
const unsigned kRounds = 21;
// Chance that one setting of a material changes from the draw before; tuned so
// that about 70 % of the device states stay equal.
const double kChangeChance = 0.34;

// ---- counting at the device's table

typedef HRESULT(STDMETHODCALLTYPE* SetRenderStateFn)(IDirect3DDevice9*, D3DRENDERSTATETYPE, DWORD);
typedef HRESULT(STDMETHODCALLTYPE* SetSamplerStateFn)(IDirect3DDevice9*, DWORD, D3DSAMPLERSTATETYPE, DWORD);

SetRenderStateFn g_setRenderState = nullptr;
SetSamplerStateFn g_setSamplerState = nullptr;
uint64_t g_deviceCalls = 0;
uint64_t g_failedDraws = 0; // a refused draw would make its frame look cheap

HRESULT STDMETHODCALLTYPE CountingSetRenderState(IDirect3DDevice9* device, D3DRENDERSTATETYPE state, DWORD value)
{
    ++g_deviceCalls;
    return g_setRenderState(device, state, value);
}

HRESULT STDMETHODCALLTYPE CountingSetSamplerState(IDirect3DDevice9* device, DWORD sampler, D3DSAMPLERSTATETYPE type,
                                                  DWORD value)
{
    ++g_deviceCalls;
    return g_setSamplerState(device, sampler, type, value);
}

// Swaps one entry of a COM method table; answers the entry it replaced.
bool SwapSlot(IDirect3DDevice9* device, unsigned slot, void* entry, void** previous)
{
    void** table = *reinterpret_cast<void***>(device);
    DWORD protection = 0;
    if (!VirtualProtect(&table[slot], sizeof(void*), PAGE_READWRITE, &protection))
        return false;
    if (previous)
        *previous = table[slot];
    table[slot] = entry;
    VirtualProtect(&table[slot], sizeof(void*), protection, &protection);
    return true;
}

// ---- the workload

struct Material
{
    bool depthCheck, depthWrite, stencil;
    unsigned depthFunc, cull, colourMask, blend, bias, mipBias;
    unsigned filter[2][3];
    unsigned address[2][2];
};

const CompareFunction kDepthFuncs[] = {CMPF_LESS_EQUAL, CMPF_LESS, CMPF_EQUAL, CMPF_ALWAYS_PASS};
const CullingMode kCulls[] = {CULL_CLOCKWISE, CULL_NONE, CULL_ANTICLOCKWISE};
const unsigned kColourMasks[] = {15, 7, 0, 8};
struct Blend
{
    BlendFactor source, dest;
    BlendOperation op;
};
const Blend kBlends[] = {{SBF_ONE, SBF_ZERO, SBO_ADD},
                         {SBF_SOURCE_ALPHA, SBF_ONE_MINUS_SOURCE_ALPHA, SBO_ADD},
                         {SBF_ONE, SBF_ONE, SBO_ADD},
                         {SBF_DEST_COLOUR, SBF_ZERO, SBO_ADD}};
const float kBiases[][2] = {{0.0f, 0.0f}, {-0.0001f, 1.0f}, {-0.001f, 2.0f}};
const float kMipBiases[] = {0.0f, -0.5f, 0.5f};
const FilterOptions kFilters[] = {FO_LINEAR, FO_POINT, FO_ANISOTROPIC};
const TextureAddressMode kAddresses[] = {TAM_WRAP, TAM_CLAMP, TAM_MIRROR};

template <size_t N, typename T>
unsigned CountOf(const T (&)[N])
{
    return static_cast<unsigned>(N);
}

// One engine material as the engine sets it before a draw.
void Apply(CRenderSystem* rs, const Material& m)
{
    rs->SetDepthCheckEnabled(m.depthCheck);
    rs->SetDepthWriteEnabled(m.depthWrite);
    rs->SetDepthFunction(kDepthFuncs[m.depthFunc]);
    rs->SetCullingMode(kCulls[m.cull]);
    const unsigned mask = kColourMasks[m.colourMask];
    rs->SetColourWriteEnabled(mask & 1, mask & 2, mask & 4, mask & 8);
    const Blend& blend = kBlends[m.blend];
    rs->SetSceneBlending(blend.source, blend.dest, blend.op);
    rs->SetStencilEnabled(m.stencil);
    rs->SetDepthBias(kBiases[m.bias][0], kBiases[m.bias][1]);
    for (unsigned unit = 0; unit < 2; ++unit)
    {
        rs->_setTextureUnitFiltering(unit, kFilters[m.filter[unit][0]], kFilters[m.filter[unit][1]],
                                     kFilters[m.filter[unit][2]]);
        rs->_setTextureAddressingModeUV(unit, kAddresses[m.address[unit][0]], kAddresses[m.address[unit][1]]);
    }
    rs->_setTextureMipmapBias(0, kMipBiases[m.mipBias]);
}

// A random walk of materials: each setting moves to another value by chance.
std::vector<Material> Script()
{
    std::mt19937 random(20240611u);
    std::uniform_real_distribution<double> chance(0.0, 1.0);
    auto walk = [&](unsigned& value, unsigned count, bool first) {
        if (first || chance(random) < kChangeChance)
            value = (value + 1 + random() % (count - 1)) % count;
    };
    auto walkBool = [&](bool& value, bool first) {
        if (first || chance(random) < kChangeChance)
            value = !value;
    };
    std::vector<Material> script(kDraws);
    Material m = {};
    for (unsigned d = 0; d < kDraws; ++d)
    {
        const bool first = d == 0;
        walkBool(m.depthCheck, first);
        walkBool(m.depthWrite, first);
        walkBool(m.stencil, false);
        walk(m.depthFunc, CountOf(kDepthFuncs), first);
        walk(m.cull, CountOf(kCulls), false);
        walk(m.colourMask, CountOf(kColourMasks), false);
        walk(m.blend, CountOf(kBlends), false);
        walk(m.bias, CountOf(kBiases), false);
        walk(m.mipBias, CountOf(kMipBiases), false);
        for (unsigned unit = 0; unit < 2; ++unit)
        {
            for (unsigned& f : m.filter[unit])
                walk(f, CountOf(kFilters), false);
            for (unsigned& a : m.address[unit])
                walk(a, CountOf(kAddresses), false);
        }
        script[d] = m;
    }
    return script;
}

// ---- call lists

const uint32_t kRender = 0xFFFF; // the sampler field of a render state

struct Call
{
    uint32_t sampler; // kRender for a render state
    uint32_t type;
    uint32_t value;
};

struct CallList
{
    std::vector<Call> calls;
    std::vector<size_t> first; // per draw, and one past the last
};

// Every state each material sets, read from the shadows right after setting it
// on unknown shadows: the render system's own translation, without filtering.
CallList NaiveList(CD3D9RenderSystem* d3d, const std::vector<Material>& script)
{
    CallList list;
    for (const Material& m : script)
    {
        list.first.push_back(list.calls.size());
        d3d->_resetStateCaches();
        d3d->m_bStencilEnabled = !m.stencil; // the switch is filtered by its member too
        Apply(d3d, m);
        for (uint32_t state = 0; state < d3d->m_renderStates.size(); ++state)
            if (d3d->m_renderStates[state] != CD3D9RenderSystem::kUnknownState)
                list.calls.push_back(Call{kRender, state, d3d->m_renderStates[state]});
        for (uint32_t sampler = 0; sampler < 2; ++sampler)
            for (uint32_t type = 0; type < d3d->m_samplerStates[sampler].size(); ++type)
                if (d3d->m_samplerStates[sampler][type] != CD3D9RenderSystem::kUnknownState)
                    list.calls.push_back(Call{sampler, type, d3d->m_samplerStates[sampler][type]});
    }
    list.first.push_back(list.calls.size());
    return list;
}

// Of the naive list, only what differs from the device's value at that point of
// a frame that follows another frame of the same script.
CallList MinimalList(const CallList& naive, unsigned* equalStates)
{
    std::vector<uint64_t> device(0x10000 * 3, ~0ull);
    auto slot = [](const Call& c) { return (c.sampler == kRender ? 0x20000u : c.sampler * 0x100u) + c.type; };
    CallList list;
    *equalStates = 0;
    for (int pass = 0; pass < 2; ++pass)
    {
        for (size_t d = 0; d + 1 < naive.first.size(); ++d)
        {
            if (pass == 1)
                list.first.push_back(list.calls.size());
            for (size_t i = naive.first[d]; i < naive.first[d + 1]; ++i)
            {
                const Call& c = naive.calls[i];
                if (device[slot(c)] == c.value)
                {
                    if (pass == 1)
                        ++*equalStates;
                    continue;
                }
                device[slot(c)] = c.value;
                if (pass == 1)
                    list.calls.push_back(c);
            }
        }
    }
    list.first.push_back(list.calls.size());
    return list;
}

// The filtered way's own copy of the device's values: the render states, then 16
// types of each of the two samplers; each call of the naive list knows its slot.
const unsigned kFilterSlots = 256 + 2 * 16;
uint32_t g_filterShadow[kFilterSlots];
std::vector<uint32_t> g_filterSlot;

void PrepareFilter(const CallList& naive)
{
    g_filterSlot.clear();
    for (const Call& c : naive.calls)
    {
        const uint32_t slot = c.sampler == kRender ? c.type : 256 + c.sampler * 16 + c.type;
        g_filterSlot.push_back(slot);
        // After any frame the device holds the script's last value of each state.
        g_filterShadow[slot] = c.value;
    }
}

// The naive calls of one draw, each sent only when it differs from the copy.
void RunFilteredDraw(IDirect3DDevice9* device, const CallList& naive, size_t draw)
{
    for (size_t i = naive.first[draw]; i < naive.first[draw + 1]; ++i)
    {
        const Call& c = naive.calls[i];
        uint32_t& shadow = g_filterShadow[g_filterSlot[i]];
        if (shadow == c.value)
            continue;
        shadow = c.value;
        if (c.sampler == kRender)
            device->SetRenderState(static_cast<D3DRENDERSTATETYPE>(c.type), c.value);
        else
            device->SetSamplerState(c.sampler, static_cast<D3DSAMPLERSTATETYPE>(c.type), c.value);
    }
}

// The calls of one draw of a list.
void RunDraw(IDirect3DDevice9* device, const CallList& list, size_t draw)
{
    const Call* c = list.calls.data() + list.first[draw];
    const Call* const end = list.calls.data() + list.first[draw + 1];
    for (; c != end; ++c)
    {
        if (c->sampler == kRender)
            device->SetRenderState(static_cast<D3DRENDERSTATETYPE>(c->type), c->value);
        else
            device->SetSamplerState(c->sampler, static_cast<D3DSAMPLERSTATETYPE>(c->type), c->value);
    }
}

enum Way
{
    PLUGIN,
    NAIVE,
    MINIMAL,
    FILTERED,
    WAYS,
    EMPTY_SETTERS = WAYS, // the engine's calls into empty setters
    DRAWS_ONLY,           // the draws of a frame without its states
    ALL_WAYS
};

// A render system whose setters of the benchmark's materials do nothing: what is
// left of setting a material is the engine's virtual calls.
class EmptySetters : public CD3D9RenderSystem
{
public:
    void SetDepthCheckEnabled(bool) override {}
    void SetDepthWriteEnabled(bool) override {}
    void SetDepthFunction(CompareFunction) override {}
    void SetCullingMode(CullingMode) override {}
    void SetColourWriteEnabled(bool, bool, bool, bool) override {}
    void SetSceneBlending(BlendFactor, BlendFactor, BlendOperation) override {}
    void SetStencilEnabled(bool) override {}
    void SetDepthBias(float, float) override {}
    void _setTextureUnitFilter(unsigned, FilterType, FilterOptions) override {}
    void _setTextureAddressingModeUV(unsigned, TextureAddressMode, TextureAddressMode) override {}
    void _setTextureMipmapBias(unsigned, float) override {}
};

// One frame of the script, its states set one way; with draws, each material
// is followed by its draw as in an engine's frame.
void RunFrame(Way way, CRenderSystem* rs, CRenderSystem* empty, IDirect3DDevice9* device,
              const std::vector<Material>& script, const CallList& naive, const CallList& minimal, bool withDraws)
{
    if (withDraws)
        device->BeginScene();
    const CallList& list = way == NAIVE ? naive : minimal;
    for (size_t d = 0; d < script.size(); ++d)
    {
        if (way == PLUGIN)
            Apply(rs, script[d]);
        else if (way == EMPTY_SETTERS)
            Apply(empty, script[d]);
        else if (way == FILTERED)
            RunFilteredDraw(device, naive, d);
        else if (way != DRAWS_ONLY)
            RunDraw(device, list, d);
        if (withDraws && FAILED(device->DrawPrimitive(D3DPT_TRIANGLELIST, 0, 1)))
            ++g_failedDraws;
    }
    if (withDraws)
        device->EndScene();
}

struct Vertex
{
    float x, y, z, rhw;
    DWORD colour;
};

// A pre-transformed triangle of a few pixels, bound as the only stream.
bool MakeTriangle(IDirect3DDevice9* device, IDirect3DVertexBuffer9** buffer)
{
    const Vertex vertices[3] = {{4.0f, 4.0f, 0.5f, 1.0f, 0xFF40C040u},
                                {12.0f, 4.0f, 0.5f, 1.0f, 0xFF40C040u},
                                {4.0f, 12.0f, 0.5f, 1.0f, 0xFF40C040u}};
    const DWORD fvf = D3DFVF_XYZRHW | D3DFVF_DIFFUSE;
    if (FAILED(device->CreateVertexBuffer(sizeof(vertices), D3DUSAGE_WRITEONLY, fvf, D3DPOOL_MANAGED, buffer, nullptr)))
        return false;
    void* data = nullptr;
    if (FAILED((*buffer)->Lock(0, 0, &data, 0)))
        return false;
    std::memcpy(data, vertices, sizeof(vertices));
    (*buffer)->Unlock();
    device->SetFVF(fvf);
    device->SetStreamSource(0, *buffer, 0, sizeof(Vertex));
    return true;
}

// Until the device has carried out everything asked of it so far.
void WaitIdle(IDirect3DQuery9* query)
{
    if (!query || FAILED(query->Issue(D3DISSUE_END)))
        return;
    while (query->GetData(nullptr, 0, D3DGETDATA_FLUSH) == S_FALSE)
        Sleep(0);
}

double Seconds(const LARGE_INTEGER& from, const LARGE_INTEGER& to, const LARGE_INTEGER& frequency)
{
    return static_cast<double>(to.QuadPart - from.QuadPart) / static_cast<double>(frequency.QuadPart);
}

} // namespace

int main()
{
    SetLogEcho(false);
    // Made first, so that the render system measured is the process's own (the
    // engine's GetRenderSystem answers the one made last). Reached through a
    // volatile pointer, so that no call into it is resolved at compile time.
    EmptySetters* volatile emptySetters = new EmptySetters;
    CRenderSystem* empty = emptySetters;
    HWND hWnd = CreateWindowExA(0, "STATIC", "bench_state_cache", WS_OVERLAPPEDWINDOW, 0, 0, 64, 64, nullptr, nullptr,
                                GetModuleHandleA(nullptr), nullptr);
    CRenderSystem* rs = CreateRenderSystem();
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    if (!hWnd || !rs || !d3d->m_pD3D9)
    {
        std::printf("bench_state_cache: no window or no Direct3D 9 runtime\n");
        return 1;
    }
    // The device as the render system makes it: hardware, single-threaded.
    D3DPRESENT_PARAMETERS pp = {};
    pp.BackBufferWidth = 64;
    pp.BackBufferHeight = 64;
    pp.BackBufferFormat = D3DFMT_X8R8G8B8;
    pp.BackBufferCount = 1;
    pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
    pp.hDeviceWindow = hWnd;
    pp.Windowed = TRUE;
    pp.PresentationInterval = D3DPRESENT_INTERVAL_IMMEDIATE;
    HRESULT hr = d3d->m_pD3D9->CreateDevice(D3DADAPTER_DEFAULT, D3DDEVTYPE_HAL, hWnd,
                                            D3DCREATE_HARDWARE_VERTEXPROCESSING, &pp, &d3d->m_pD3D9Device);
    if (FAILED(hr) || !d3d->m_pD3D9Device)
    {
        std::printf("bench_state_cache: CreateDevice failed: 0x%08lx\n", static_cast<unsigned long>(hr));
        return 1;
    }
    IDirect3DDevice9* device = d3d->m_pD3D9Device;
    device->GetDeviceCaps(&d3d->m_d3dcaps);
    rs->m_pCapabilities->SetMipBiasSupported(true);
    rs->m_pCapabilities->SetSRGBReadWrite(true);

    void* previous = nullptr;
    if (!SwapSlot(device, kvSetRenderStateSlot, reinterpret_cast<void*>(&CountingSetRenderState), &previous))
    {
        std::printf("bench_state_cache: cannot count at the device's table\n");
        return 1;
    }
    g_setRenderState = reinterpret_cast<SetRenderStateFn>(previous);
    if (!SwapSlot(device, kvSetSamplerStateSlot, reinterpret_cast<void*>(&CountingSetSamplerState), &previous))
    {
        std::printf("bench_state_cache: cannot count at the device's table\n");
        return 1;
    }
    g_setSamplerState = reinterpret_cast<SetSamplerStateFn>(previous);

    const std::vector<Material> script = Script();
    const CallList naive = NaiveList(d3d, script);
    unsigned equalStates = 0;
    const CallList minimal = MinimalList(naive, &equalStates);
    PrepareFilter(naive);

    // Shadows and device agree on the script's last material before timing.
    d3d->_resetStateCaches();
    d3d->m_bStencilEnabled = !script.back().stencil;
    Apply(rs, script.back());

    // A small triangle a draw, the same device calls in every way, so that the
    // ways differ only in how their states reach the device. The runtime takes
    // a state at its call and applies what changed at the next draw: that part
    // of a state's cost is seen only in a frame with draws.
    IDirect3DVertexBuffer9* triangle = nullptr;
    if (!MakeTriangle(device, &triangle))
    {
        std::printf("bench_state_cache: cannot make the triangle's vertex buffer\n");
        return 1;
    }
    IDirect3DQuery9* idle = nullptr;
    device->CreateQuery(D3DQUERYTYPE_EVENT, &idle);

    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    const char* const names[WAYS] = {"plugin", "naive", "minimal", "filtered"};
    // Times per round, in us; states alone also for the empty setters.
    std::vector<double> times[ALL_WAYS], frameTimes[kRuns][ALL_WAYS];
    uint64_t calls[WAYS] = {}, frameCalls[WAYS] = {};
    bool steadyCalls = true;
    auto timeFrame = [&](Way way, bool withDraws) {
        // Each timed frame starts on an idle device: no frame pays for the
        // rendering of the one before.
        WaitIdle(idle);
        const uint64_t callsBefore = g_deviceCalls;
        LARGE_INTEGER start, end;
        QueryPerformanceCounter(&start);
        RunFrame(way, rs, empty, device, script, naive, minimal, withDraws);
        QueryPerformanceCounter(&end);
        if (way < WAYS)
        {
            uint64_t& known = withDraws ? frameCalls[way] : calls[way];
            if (known != 0 && g_deviceCalls - callsBefore != known)
                steadyCalls = false;
            known = g_deviceCalls - callsBefore;
        }
        return Seconds(start, end, frequency) * 1e6;
    };
    for (unsigned run = 0; run < kRuns; ++run)
    {
        for (int withDraws = 0; withDraws < 2; ++withDraws)
        {
            // States alone has no frame without states to time.
            const unsigned ways = withDraws ? ALL_WAYS : DRAWS_ONLY;
            for (unsigned round = 0; round < kWarmFrames + kRotations * ways; ++round)
            {
                for (unsigned k = 0; k < ways; ++k)
                {
                    const Way way = static_cast<Way>((round + k) % ways); // each way takes each place in turn
                    const double us = timeFrame(way, withDraws != 0);
                    if (round < kWarmFrames)
                        continue;
                    (withDraws ? frameTimes[run][way] : times[way]).push_back(us);
                }
            }
        }
    }
    WaitIdle(idle);
    if (idle)
        idle->Release();
    triangle->Release();

    // The filter alone: the same material again and again costs no device call,
    // only the setters and their comparisons.
    std::vector<double> repeatTimes;
    Apply(rs, script.front());
    const uint64_t firstCalls = g_deviceCalls;
    for (unsigned round = 0; round < kRounds; ++round)
    {
        LARGE_INTEGER start, end;
        QueryPerformanceCounter(&start);
        for (unsigned d = 0; d < kDraws; ++d)
            Apply(rs, script.front());
        QueryPerformanceCounter(&end);
        repeatTimes.push_back(Seconds(start, end, frequency) * 1e6);
    }
    const uint64_t repeatCalls = g_deviceCalls - firstCalls;

    std::vector<double> allFrameTimes[WAYS];
    for (unsigned run = 0; run < kRuns; ++run)
        for (unsigned way = 0; way < WAYS; ++way)
            allFrameTimes[way].insert(allFrameTimes[way].end(), frameTimes[run][way].begin(),
                                      frameTimes[run][way].end());
    double median[ALL_WAYS], frameMedian[WAYS];
    for (unsigned way = 0; way < WAYS; ++way)
    {
        median[way] = kvbench::Median(times[way]);
        frameMedian[way] = kvbench::Median(allFrameTimes[way]);
        std::printf("BENCH state_cache.calls_%s %llu calls/frame\n", names[way],
                    static_cast<unsigned long long>(calls[way]));
        if (frameCalls[way] != calls[way])
            steadyCalls = false;
    }
    median[EMPTY_SETTERS] = kvbench::Median(times[EMPTY_SETTERS]);
    for (unsigned way = 0; way < WAYS; ++way)
        std::printf("BENCH state_cache.time_%s %.1f us/frame\n", names[way], frameMedian[way]);
    for (unsigned way = 0; way < WAYS; ++way)
        std::printf("BENCH state_cache.states_alone_time_%s %.1f us/frame\n", names[way], median[way]);
    std::printf("BENCH state_cache.states_alone_time_virtual_calls %.1f us/frame\n", median[EMPTY_SETTERS]);
    const double statesPerDraw = static_cast<double>(naive.calls.size()) / kDraws;
    std::printf("BENCH state_cache.states_per_draw %.1f states\n", statesPerDraw);
    std::printf("BENCH state_cache.states_equal_to_previous %.1f %%\n",
                100.0 * equalStates / static_cast<double>(naive.calls.size()));
    const double repeatMedian = kvbench::Median(repeatTimes);
    std::printf("BENCH state_cache.calls_repeated_material %llu calls/frame\n",
                static_cast<unsigned long long>(repeatCalls));
    std::printf("BENCH state_cache.time_repeated_material %.1f us/frame\n", repeatMedian);
    std::printf("BENCH state_cache.filter_cost %.1f ns/state\n", repeatMedian * 1000.0 / naive.calls.size());
    std::printf("BENCH state_cache.device_call_cost %.1f ns/call\n",
                median[MINIMAL] * 1000.0 / static_cast<double>(calls[MINIMAL]));
    std::printf("BENCH state_cache.draw_cost %.1f ns/draw\n",
                (frameMedian[MINIMAL] - median[MINIMAL]) * 1000.0 / kDraws);
    std::printf("BENCH state_cache.calls_vs_minimal %.2f x\n",
                static_cast<double>(calls[PLUGIN]) / static_cast<double>(calls[MINIMAL]));
    std::printf("BENCH state_cache.calls_vs_naive %.2f x\n",
                static_cast<double>(calls[PLUGIN]) / static_cast<double>(calls[NAIVE]));
    // Per rotation: its mean time of each way.
    auto rotationMeans = [](const std::vector<double>& t, unsigned ways) {
        std::vector<double> means;
        for (size_t first = 0; first + ways <= t.size(); first += ways)
        {
            double sum = 0.0;
            for (size_t i = first; i < first + ways; ++i)
                sum += t[i];
            means.push_back(sum / ways);
        }
        return means;
    };
    auto ratioOfMeans = [](const std::vector<double>& a, const std::vector<double>& b) {
        std::vector<double> ratios;
        for (size_t i = 0; i < a.size() && i < b.size(); ++i)
            ratios.push_back(a[i] / b[i]);
        return ratios;
    };
    double worst = 0.0;
    std::vector<double> naiveRatios, floors, filterFloors;
    for (unsigned run = 0; run < kRuns; ++run)
    {
        std::vector<double> means[ALL_WAYS];
        for (unsigned way = 0; way < ALL_WAYS; ++way)
            means[way] = rotationMeans(frameTimes[run][way], ALL_WAYS);
        const double ratio = kvbench::Median(ratioOfMeans(means[PLUGIN], means[MINIMAL]));
        worst = std::max(worst, ratio);
        std::printf("BENCH state_cache.time_vs_minimal_run%u %.3f x\n", run + 1, ratio);
        naiveRatios.push_back(kvbench::Median(ratioOfMeans(means[PLUGIN], means[NAIVE])));
        // The floor of whole frames: the minimal frame plus what the engine's calls
        // into empty setters add to bare draws.
        for (size_t i = 0; i < means[MINIMAL].size(); ++i)
        {
            floors.push_back((means[MINIMAL][i] + means[EMPTY_SETTERS][i] - means[DRAWS_ONLY][i]) / means[MINIMAL][i]);
            filterFloors.push_back((means[FILTERED][i] + means[EMPTY_SETTERS][i] - means[DRAWS_ONLY][i]) /
                                   means[MINIMAL][i]);
        }
    }
    std::printf("BENCH state_cache.time_vs_minimal_worst %.3f x\n", worst);
    std::printf("BENCH state_cache.time_vs_naive %.3f x\n", kvbench::Median(naiveRatios));
    std::printf("BENCH state_cache.time_floor_vs_minimal %.3f x\n", kvbench::Median(floors));
    std::printf("BENCH state_cache.time_filter_floor_vs_minimal %.3f x\n", kvbench::Median(filterFloors));
    std::vector<double> aloneMeans[DRAWS_ONLY];
    for (unsigned way = 0; way < DRAWS_ONLY; ++way)
        aloneMeans[way] = rotationMeans(times[way], DRAWS_ONLY);
    std::printf("BENCH state_cache.states_alone_time_vs_minimal %.3f x\n",
                kvbench::Median(ratioOfMeans(aloneMeans[PLUGIN], aloneMeans[MINIMAL])));
    std::vector<double> aloneFloors, aloneFilterFloors;
    for (size_t i = 0; i < aloneMeans[MINIMAL].size(); ++i)
    {
        aloneFloors.push_back((aloneMeans[MINIMAL][i] + aloneMeans[EMPTY_SETTERS][i]) / aloneMeans[MINIMAL][i]);
        aloneFilterFloors.push_back((aloneMeans[FILTERED][i] + aloneMeans[EMPTY_SETTERS][i]) / aloneMeans[MINIMAL][i]);
    }
    std::printf("BENCH state_cache.states_alone_floor_vs_minimal %.3f x\n", kvbench::Median(aloneFloors));
    std::printf("BENCH state_cache.states_alone_filter_floor_vs_minimal %.3f x\n", kvbench::Median(aloneFilterFloors));
    std::printf("BENCH state_cache.states_alone_time_vs_naive %.3f x\n",
                kvbench::Median(ratioOfMeans(aloneMeans[PLUGIN], aloneMeans[NAIVE])));

    int status = 0;
    if (!steadyCalls)
    {
        std::printf("bench_state_cache: the device calls changed from frame to frame\n");
        status = 1;
    }
    if (calls[FILTERED] != calls[MINIMAL])
    {
        std::printf("bench_state_cache: the filtered way made %llu calls a frame, the minimal list %llu\n",
                    static_cast<unsigned long long>(calls[FILTERED]), static_cast<unsigned long long>(calls[MINIMAL]));
        status = 1;
    }
    if (g_failedDraws != 0)
    {
        std::printf("bench_state_cache: the device refused %llu draw(s)\n",
                    static_cast<unsigned long long>(g_failedDraws));
        status = 1;
    }
    if (GetLogLineCount() != 0)
    {
        std::printf("bench_state_cache: the render system logged %u line(s)\n",
                    static_cast<unsigned>(GetLogLineCount()));
        status = 1;
    }

    SwapSlot(device, kvSetRenderStateSlot, reinterpret_cast<void*>(g_setRenderState), nullptr);
    SwapSlot(device, kvSetSamplerStateSlot, reinterpret_cast<void*>(g_setSamplerState), nullptr);
    delete rs;
    delete emptySetters;
    DestroyWindow(hWnd);
    return status;
}
