// What the programs' constant path costs and spares on a real device.
//
// A frame of 1,000 draws, each setting the parameters of the samples' lit
// shader (its fog variant) that an engine sets per object: a world matrix, a
// colour, and three per-material vectors (ambient colour, fog colour, fog
// range), in the vertex and the pixel stage. Each value stays what it was in
// the draw before with a chance of 60 %. The frame runs four ways in one
// process on one device, alternating, and each is timed over whole frames of
// constant uploads (no draws, whose cost would be the same for all):
//   plugin         the program's setters and FlushConstants, as the engine calls them;
//   per parameter  one Set*ShaderConstantF per parameter and draw, at the
//                  registers the program's binds name;
//   per register   one call per register and draw;
//   minimal        a list made beforehand: one call per maximal run of
//                  registers whose value differs from what the device holds.
// Device calls are counted at the device's own method table, so whoever makes
// them is counted the same way.
#include "../Bench.h"
#include "D3D9HLSLProgram.h"
#include "D3D9RenderSystem.h"

#include "engine/ArchiveManager.h"
#include "engine/Engine.h"
#include "engine/GpuProgramManager.h"
#include "engine/Log.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

extern "C" const unsigned kvSetVertexShaderConstantFSlot;
extern "C" const unsigned kvSetPixelShaderConstantFSlot;

namespace
{

using namespace kv;

const unsigned kDraws = 1000;
const unsigned kRounds = 30;
const double kKeepChance = 0.6;

// ---- counting at the device's table

typedef HRESULT(STDMETHODCALLTYPE* SetConstantFn)(IDirect3DDevice9*, UINT, const float*, UINT);

SetConstantFn g_setVertex = nullptr;
SetConstantFn g_setPixel = nullptr;
uint64_t g_deviceCalls = 0;

HRESULT STDMETHODCALLTYPE CountingSetVertex(IDirect3DDevice9* device, UINT start, const float* data, UINT count)
{
    ++g_deviceCalls;
    return g_setVertex(device, start, data, count);
}

HRESULT STDMETHODCALLTYPE CountingSetPixel(IDirect3DDevice9* device, UINT start, const float* data, UINT count)
{
    ++g_deviceCalls;
    return g_setPixel(device, start, data, count);
}

// Swaps one entry of a COM method table; answers the entry it replaced.
void* SwapSlot(IDirect3DDevice9* device, unsigned slot, void* entry)
{
    void** table = *reinterpret_cast<void***>(device);
    DWORD protection = 0;
    if (!VirtualProtect(&table[slot], sizeof(void*), PAGE_READWRITE, &protection))
        return nullptr;
    void* previous = table[slot];
    table[slot] = entry;
    VirtualProtect(&table[slot], sizeof(void*), protection, &protection);
    return previous;
}

// ---- the scripted frame

// One parameter: its stage, first register and register count, and its value per draw.
struct Parameter
{
    const CGpuProgram::PARAM* param;
    bool pixel;
    int start;
    int count;
    std::vector<float> values; // kDraws x count x 4
    const float* At(unsigned draw) const { return &values[static_cast<size_t>(draw) * count * 4]; }
};

// One call of the minimal list, with its registers' values side by side.
struct Send
{
    bool pixel;
    int start;
    int count;
    std::vector<float> data;
};

std::vector<Parameter> Script(CD3D9HLSLProgram* lit)
{
    std::mt19937 random(1234);
    std::uniform_real_distribution<float> value(-1.0f, 1.0f);
    std::bernoulli_distribution keep(kKeepChance);
    std::vector<Parameter> parameters;
    for (const char* name : {"world", "materialColour", "ambientColour", "fogColour", "fogRange"})
    {
        const CGpuProgram::PARAM* param = lit->GetParam(name);
        if (!param || !param->m_pBind)
            return {};
        const CGpuProgram::Bind& bind = *param->m_pBind;
        const bool pixel = bind.nVSRegister < 0;
        Parameter p{
            param, pixel, pixel ? bind.nPSRegister : bind.nVSRegister, pixel ? bind.nPSCount : bind.nVSCount, {}};
        // A parameter keeps or changes its value as a whole.
        p.values.resize(static_cast<size_t>(kDraws) * p.count * 4);
        for (unsigned d = 0; d < kDraws; ++d)
        {
            float* v = &p.values[static_cast<size_t>(d) * p.count * 4];
            if (d > 0 && keep(random))
                std::copy(v - p.count * 4, v, v);
            else
                for (int i = 0; i < p.count * 4; ++i)
                    v[i] = value(random);
        }
        parameters.push_back(std::move(p));
    }
    return parameters;
}

// The least calls that bring the device from one draw's values to the next:
// per stage, the registers that differ, in runs of neighbours.
std::vector<std::vector<Send>> MinimalList(const std::vector<Parameter>& parameters)
{
    std::vector<std::vector<Send>> frame(kDraws);
    for (unsigned d = 0; d < kDraws; ++d)
        for (bool pixel : {true, false})
        {
            // Register -> its value in this draw, when it differs from the draw before.
            std::vector<std::pair<int, const float*>> changed;
            for (const Parameter& p : parameters)
                for (int r = 0; p.pixel == pixel && r < p.count; ++r)
                {
                    const unsigned before = d == 0 ? kDraws - 1 : d - 1;
                    if (std::memcmp(p.At(d) + r * 4, p.At(before) + r * 4, 16) != 0)
                        changed.emplace_back(p.start + r, p.At(d) + r * 4);
                }
            std::sort(changed.begin(), changed.end(),
                      [](const std::pair<int, const float*>& a, const std::pair<int, const float*>& b) {
                          return a.first < b.first;
                      });
            for (const auto& c : changed)
            {
                Send* last = frame[d].empty() ? nullptr : &frame[d].back();
                if (!last || last->pixel != pixel || last->start + last->count != c.first)
                {
                    frame[d].push_back(Send{pixel, c.first, 0, {}});
                    last = &frame[d].back();
                }
                ++last->count;
                last->data.insert(last->data.end(), c.second, c.second + 4);
            }
        }
    return frame;
}

} // namespace

int main()
{
    SetLogEcho(false);
    EngineInit();
    char temp[MAX_PATH];
    GetTempPathA(MAX_PATH, temp);
    GetGpuProgramManager()->SetDataRoot(KV_SAMPLES_DIR);
    GetArchiveMananger()->SetCacheRoot(std::string(temp) + "kv_bench_constants_cache");
    kvbench::Host host;
    if (!kvbench::StartRenderSystem("bench_constants", host))
        return 1;
    CRenderSystem* rs = host.rs;
    rs->m_nRuntimeMacro = 1; // fog
    rs->m_nLightingMacro = 1;
    ref_ptr<CGpuProgram> program = rs->CreateGpuProgram("lit");
    CD3D9HLSLProgram* lit = static_cast<CD3D9HLSLProgram*>(program.get());
    const DWORD waitStart = GetTickCount();
    while (lit && !lit->SelectVariant() && GetTickCount() - waitStart < 20000)
        Sleep(1);
    const std::vector<Parameter> parameters = lit && lit->SelectVariant() ? Script(lit) : std::vector<Parameter>();
    if (parameters.empty())
    {
        std::printf("bench_constants: the lit program's fog variant is not ready\n");
        return 1;
    }
    const std::vector<std::vector<Send>> minimal = MinimalList(parameters);

    IDirect3DDevice9* device = rs->GetD3D9Device();
    g_setVertex = reinterpret_cast<SetConstantFn>(
        SwapSlot(device, kvSetVertexShaderConstantFSlot, reinterpret_cast<void*>(&CountingSetVertex)));
    g_setPixel = reinterpret_cast<SetConstantFn>(
        SwapSlot(device, kvSetPixelShaderConstantFSlot, reinterpret_cast<void*>(&CountingSetPixel)));
    if (!g_setVertex || !g_setPixel)
    {
        std::printf("bench_constants: the device's method table cannot be patched\n");
        return 1;
    }
    auto setConstants = [device](bool pixel, int start, const float* data, int count) {
        if (pixel)
            device->SetPixelShaderConstantF(static_cast<UINT>(start), data, static_cast<UINT>(count));
        else
            device->SetVertexShaderConstantF(static_cast<UINT>(start), data, static_cast<UINT>(count));
    };

    enum Way
    {
        kPlugin,
        kPerParameter,
        kPerRegister,
        kMinimal,
        kWays
    };
    const char* names[kWays] = {"plugin", "per_parameter", "per_register", "minimal"};
    auto frame = [&](Way way) {
        for (unsigned d = 0; d < kDraws; ++d)
        {
            switch (way)
            {
            case kPlugin:
                lit->SetMatrixArray(parameters[0].param, parameters[0].At(d), 1);
                for (size_t i = 1; i < parameters.size(); ++i)
                    lit->SetVector4(parameters[i].param, parameters[i].At(d));
                lit->FlushConstants();
                break;
            case kPerParameter:
                for (const Parameter& p : parameters)
                    setConstants(p.pixel, p.start, p.At(d), p.count);
                break;
            case kPerRegister:
                for (const Parameter& p : parameters)
                    for (int r = 0; r < p.count; ++r)
                        setConstants(p.pixel, p.start + r, p.At(d) + r * 4, 1);
                break;
            default:
                for (const Send& s : minimal[d])
                    setConstants(s.pixel, s.start, s.data.data(), s.count);
                break;
            }
        }
    };

    // Calls per frame, from a frame that follows one of its own kind.
    uint64_t calls[kWays];
    for (int w = 0; w < kWays; ++w)
    {
        frame(static_cast<Way>(w));
        g_deviceCalls = 0;
        frame(static_cast<Way>(w));
        calls[w] = g_deviceCalls;
    }
    std::vector<double> times[kWays];
    for (unsigned round = 0; round < kRounds; ++round)
        for (int i = 0; i < kWays; ++i)
        {
            const Way way = static_cast<Way>((i + round) % kWays); // each takes each place in turn
            frame(way);                                            // the device and the shadows as this way leaves them
            const auto start = std::chrono::steady_clock::now();
            frame(way);
            times[way].push_back(
                std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
        }

    for (int w = 0; w < kWays; ++w)
    {
        std::printf("BENCH constants.%s_calls %llu calls/frame\n", names[w], static_cast<unsigned long long>(calls[w]));
        std::printf("BENCH constants.%s_us %.1f us/frame\n", names[w], kvbench::Median(times[w]));
    }
    std::printf("BENCH constants.calls_vs_minimal %.2f x\n",
                static_cast<double>(calls[kPlugin]) / static_cast<double>(calls[kMinimal]));
    std::printf("BENCH constants.time_vs_per_parameter %.2f x\n",
                kvbench::Median(times[kPlugin]) / kvbench::Median(times[kPerParameter]));
    std::printf("BENCH constants.time_vs_minimal %.2f x\n",
                kvbench::Median(times[kPlugin]) / kvbench::Median(times[kMinimal]));

    SwapSlot(device, kvSetVertexShaderConstantFSlot, reinterpret_cast<void*>(g_setVertex));
    SwapSlot(device, kvSetPixelShaderConstantFSlot, reinterpret_cast<void*>(g_setPixel));
    program = nullptr;
    kvbench::StopRenderSystem(host);
    return 0;
}
