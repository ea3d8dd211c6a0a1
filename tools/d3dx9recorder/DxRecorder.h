// The recording d3dx9_43.dll as a test program sees it: which D3DX call was
// made with which sizes, formats, pools and file formats, and injected failures.
//
// A test never links the recorder: it finds the control functions in the loaded
// modules. Without the recorder kvdx::Available() is false and every other call
// is a no-op answering zero.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "../RecorderSupport.h"

namespace kvdx
{

// The recorded functions. Every other export of d3dx9_43 is passed on unseen.
enum class Fn : uint32_t
{
    CreateTexture,
    CreateCubeTexture,
    CreateVolumeTexture,
    CheckTextureRequirements,
    CheckCubeTextureRequirements,
    CheckVolumeTextureRequirements,
    FilterTexture,
    LoadSurfaceFromSurface,
    LoadSurfaceFromMemory,
    LoadVolumeFromVolume,
    LoadVolumeFromMemory,
    SaveTextureToFileA,
    SaveTextureToFileInMemory,
    SaveSurfaceToFileA,
    GetImageInfoFromFileInMemory,
    CreateTextureFromFileInMemoryEx,
    CreateCubeTextureFromFileInMemoryEx,
    CreateVolumeTextureFromFileInMemoryEx,
    Count
};

} // namespace kvdx

extern "C"
{

    // One recorded call. args hold the call's numbers in the order README.md lists
    // for each function; a rectangle or box that was not given reads as all ones.
    struct KvDxCall
    {
        uint32_t fn; // kvdx::Fn
        int32_t result;
        uint32_t faulted; // answered by an injected failure
        uint32_t argCount;
        uint64_t args[14];
        char path[128]; // the file name of a save, cut to fit
    };
}

namespace kvdx
{

constexpr uint32_t kAbi = (static_cast<uint32_t>(sizeof(KvDxCall)) << 16) | static_cast<uint32_t>(Fn::Count);
// A rectangle or box passed as null.
constexpr uint64_t kNone = ~0ull;

struct Api
{
    uint32_t (*Abi)();
    void (*Reset)();
    uint32_t (*TraceSize)();
    const KvDxCall* (*Trace)();
    void (*Fail)(uint32_t fn, int32_t hr, int32_t times);
};

inline const Api* Control()
{
    static const Api api = [] {
        Api a = {};
        HMODULE dll = kvtools::FindRecorder("KvDx_Abi", kAbi);
        if (!dll)
            return a;
        auto get = [&](const char* name) { return reinterpret_cast<void*>(GetProcAddress(dll, name)); };
        a.Abi = reinterpret_cast<uint32_t (*)()>(get("KvDx_Abi"));
        a.Reset = reinterpret_cast<void (*)()>(get("KvDx_Reset"));
        a.TraceSize = reinterpret_cast<uint32_t (*)()>(get("KvDx_TraceSize"));
        a.Trace = reinterpret_cast<const KvDxCall* (*)()>(get("KvDx_Trace"));
        a.Fail = reinterpret_cast<void (*)(uint32_t, int32_t, int32_t)>(get("KvDx_Fail"));
        return a;
    }();
    return &api;
}

inline bool Available()
{
    return Control()->Abi != nullptr;
}
// Trace, counts and failures cleared.
inline void Reset()
{
    if (Available())
        Control()->Reset();
}
// The next `times` calls of fn answer hr without reaching D3DX (-1: every call).
inline void Fail(Fn fn, HRESULT hr, int times = 1)
{
    if (Available())
        Control()->Fail(static_cast<uint32_t>(fn), hr, times);
}

// The calls recorded since Reset, all or of one function.
inline std::vector<KvDxCall> Calls()
{
    if (!Available())
        return {};
    const KvDxCall* trace = Control()->Trace();
    return std::vector<KvDxCall>(trace, trace + Control()->TraceSize());
}
inline std::vector<KvDxCall> Calls(Fn fn)
{
    std::vector<KvDxCall> all = Calls(), some;
    for (const KvDxCall& c : all)
        if (c.fn == static_cast<uint32_t>(fn))
            some.push_back(c);
    return some;
}

} // namespace kvdx
