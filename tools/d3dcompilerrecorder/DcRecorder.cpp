// The recorded D3DCompile, the control exports and the loader of the real
// d3dcompiler_43.dll that every export (recorded or passed on) ends in.
#include <d3dcompiler.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "DcRecorder.h"

namespace
{

constexpr uint32_t kTraceCapacity = 16384;
KvDcCall g_trace[kTraceCapacity];
uint32_t g_traceSize = 0;

// The compiler is called from any thread (an engine's compile thread above all).
CRITICAL_SECTION g_lock;
int32_t g_ruleHr = 0;
int32_t g_ruleTimes = 0;
uint32_t g_randomPerMillion = 0;
uint64_t g_random = 0;
uint32_t g_injected = 0;

void SetRandom(uint32_t seed, uint32_t perMillion)
{
    g_random = 0x9E3779B97F4A7C15ull ^ seed;
    g_randomPerMillion = perMillion > 1000000 ? 1000000 : perMillion;
}

struct Setup
{
    Setup()
    {
        InitializeCriticalSection(&g_lock);
        // "<seed>:<per million>" puts any program's compiles under random failures.
        char text[64];
        const DWORD n = GetEnvironmentVariableA("KV_D3DCOMPILER_FAULTS", text, sizeof text);
        unsigned seed = 0, perMillion = 0;
        if (n > 0 && n < sizeof text && std::sscanf(text, "%u:%u", &seed, &perMillion) == 2)
            SetRandom(seed, perMillion);
    }
} g_setup;

void* RealExport(const char* name)
{
    static const HMODULE dll = kvtools::LoadSystemDll("d3dcompiler_43.dll");
    return kvtools::SystemExportOrStop(dll, name, "d3dcompiler recorder", "d3dcompiler_43.dll");
}

void Copy(char* to, size_t size, const char* from)
{
    if (from)
    {
        std::strncpy(to, from, size - 1);
        to[size - 1] = 0;
    }
}

// The failure this call answers, if any: a rule first, then a draw of the seeded generator.
bool TakeFault(HRESULT* hr)
{
    static const HRESULT kResults[] = {E_OUTOFMEMORY, E_FAIL, E_INVALIDARG};
    bool hit = false;
    if (g_ruleTimes != 0)
    {
        *hr = g_ruleHr;
        hit = true;
        if (g_ruleTimes > 0)
            --g_ruleTimes;
    }
    else if (g_randomPerMillion)
    {
        const uint64_t z = kvtools::NextDraw(g_random);
        hit = z % 1000000u < g_randomPerMillion;
        *hr = kResults[(z >> 32) % 3];
    }
    g_injected += hit;
    return hit;
}

} // namespace

// The forwarding stubs look their target up here, once per export.
extern "C" void* kvdx_resolve(const char* name)
{
    return RealExport(name);
}

extern "C"
{

    __declspec(dllexport) uint32_t KvDc_Abi()
    {
        return kvdc::kAbi;
    }
    __declspec(dllexport) void KvDc_Reset()
    {
        EnterCriticalSection(&g_lock);
        g_traceSize = 0;
        g_ruleTimes = 0;
        g_randomPerMillion = 0;
        g_injected = 0;
        LeaveCriticalSection(&g_lock);
    }
    __declspec(dllexport) uint32_t KvDc_TraceSize()
    {
        return g_traceSize;
    }
    __declspec(dllexport) const KvDcCall* KvDc_Trace()
    {
        return g_trace;
    }
    __declspec(dllexport) void KvDc_Fail(int32_t hr, int32_t times)
    {
        EnterCriticalSection(&g_lock);
        g_ruleHr = hr;
        g_ruleTimes = times;
        LeaveCriticalSection(&g_lock);
    }
    __declspec(dllexport) void KvDc_SetRandomFaults(uint32_t seed, uint32_t perMillion)
    {
        EnterCriticalSection(&g_lock);
        SetRandom(seed, perMillion);
        LeaveCriticalSection(&g_lock);
    }
    __declspec(dllexport) uint32_t KvDc_FaultsInjected()
    {
        return g_injected;
    }

    HRESULT WINAPI D3DCompile(const void* data, SIZE_T size, const char* name, const D3D_SHADER_MACRO* defines,
                              ID3DInclude* include, const char* entry, const char* target, UINT flags1, UINT flags2,
                              ID3DBlob** code, ID3DBlob** errors)
    {
        EnterCriticalSection(&g_lock);
        KvDcCall* record = g_traceSize < kTraceCapacity ? &g_trace[g_traceSize++] : nullptr;
        HRESULT hr = S_OK;
        const bool faulted = TakeFault(&hr);
        if (record)
        {
            std::memset(record, 0, sizeof *record);
            record->faulted = faulted;
            record->sourceSize = static_cast<uint32_t>(size);
            record->flags1 = flags1;
            Copy(record->entry, sizeof record->entry, entry);
            Copy(record->target, sizeof record->target, target);
            Copy(record->sourceName, sizeof record->sourceName, name);
            record->result = hr;
        }
        LeaveCriticalSection(&g_lock);
        if (faulted)
        {
            // As a compiler that gave up: no code, no message.
            if (code)
                *code = nullptr;
            if (errors)
                *errors = nullptr;
            return hr;
        }
        typedef HRESULT(WINAPI * Fn)(const void*, SIZE_T, const char*, const D3D_SHADER_MACRO*, ID3DInclude*,
                                     const char*, const char*, UINT, UINT, ID3DBlob**, ID3DBlob**);
        static const Fn real = reinterpret_cast<Fn>(RealExport("D3DCompile"));
        hr = real(data, size, name, defines, include, entry, target, flags1, flags2, code, errors);
        if (record)
            record->result = hr;
        return hr;
    }

} // extern "C"
