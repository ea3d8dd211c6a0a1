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

// The system's d3dcompiler_43.dll, loaded at the first call rather than in DllMain.
HMODULE RealDll()
{
    static HMODULE real = [] {
        char path[MAX_PATH];
        const UINT n = GetSystemDirectoryA(path, MAX_PATH);
        const char name[] = "\\d3dcompiler_43.dll";
        if (n == 0 || n + sizeof name > MAX_PATH)
            return static_cast<HMODULE>(nullptr);
        std::memcpy(path + n, name, sizeof name);
        return LoadLibraryA(path);
    }();
    return real;
}

void* RealExport(const char* name)
{
    HMODULE dll = RealDll();
    void* f = dll ? reinterpret_cast<void*>(GetProcAddress(dll, name)) : nullptr;
    if (!f)
    {
        std::fprintf(stderr, "d3dcompiler recorder: the system's d3dcompiler_43.dll has no %s\n", name);
        ExitProcess(3);
    }
    return f;
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
        uint64_t z = (g_random += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        z ^= z >> 31;
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
