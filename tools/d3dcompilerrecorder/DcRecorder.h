// The recording d3dcompiler_43.dll as a program sees it: the D3DCompile calls made,
// with their entry point, target and result, and injected or seeded random failures.
//
// A program never links the recorder: it finds the control functions among the
// loaded modules. Without the recorder kvdc::Available() is false and every other
// call is a no-op answering zero.
#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

#include "../RecorderSupport.h"

extern "C"
{

    // One D3DCompile call.
    struct KvDcCall
    {
        int32_t result;
        uint32_t faulted; // answered by an injected failure
        uint32_t sourceSize;
        uint32_t flags1;
        char entry[32]; // cut to fit
        char target[16];
        char sourceName[80];
    };
}

namespace kvdc
{

constexpr uint32_t kAbi = static_cast<uint32_t>(sizeof(KvDcCall)) << 16 | 1u;

struct Api
{
    uint32_t (*Abi)();
    void (*Reset)();
    uint32_t (*TraceSize)();
    const KvDcCall* (*Trace)();
    void (*Fail)(int32_t hr, int32_t times);
    void (*SetRandomFaults)(uint32_t seed, uint32_t perMillion);
    uint32_t (*FaultsInjected)();
};

inline const Api* Control()
{
    static const Api api = [] {
        Api a = {};
        HMODULE dll = kvtools::FindRecorder("KvDc_Abi", kAbi);
        if (!dll)
            return a;
        auto get = [&](const char* name) { return reinterpret_cast<void*>(GetProcAddress(dll, name)); };
        a.Abi = reinterpret_cast<uint32_t (*)()>(get("KvDc_Abi"));
        a.Reset = reinterpret_cast<void (*)()>(get("KvDc_Reset"));
        a.TraceSize = reinterpret_cast<uint32_t (*)()>(get("KvDc_TraceSize"));
        a.Trace = reinterpret_cast<const KvDcCall* (*)()>(get("KvDc_Trace"));
        a.Fail = reinterpret_cast<void (*)(int32_t, int32_t)>(get("KvDc_Fail"));
        a.SetRandomFaults = reinterpret_cast<void (*)(uint32_t, uint32_t)>(get("KvDc_SetRandomFaults"));
        a.FaultsInjected = reinterpret_cast<uint32_t (*)()>(get("KvDc_FaultsInjected"));
        return a;
    }();
    return &api;
}

inline bool Available()
{
    return Control()->Abi != nullptr;
}
// Trace, counter, rule and random faults cleared.
inline void Reset()
{
    if (Available())
        Control()->Reset();
}
// The next `times` D3DCompile calls (-1: all) answer hr without compiling.
inline void Fail(HRESULT hr, int times = 1)
{
    if (Available())
        Control()->Fail(hr, times);
}
// About perMillion of every million D3DCompile calls answer E_OUTOFMEMORY, E_FAIL or
// E_INVALIDARG, drawn from the seed; 0 ends them.
inline void SetRandomFaults(uint32_t seed, uint32_t perMillion)
{
    if (Available())
        Control()->SetRandomFaults(seed, perMillion);
}
// Failures injected (by rule or at random) since the last Reset.
inline uint32_t FaultsInjected()
{
    return Available() ? Control()->FaultsInjected() : 0;
}
// The calls recorded since Reset (the first 16,384).
inline std::vector<KvDcCall> Calls()
{
    if (!Available())
        return {};
    const KvDcCall* trace = Control()->Trace();
    return std::vector<KvDcCall>(trace, trace + Control()->TraceSize());
}

} // namespace kvdc
