// The control interface of the recording d3d9.dll, as a test program sees it.
//
// A test never links the proxy: it finds the functions in whatever d3d9.dll the
// process has loaded. When that is Wine's own, kvproxy::Available() is false and
// every other call here is a harmless no-op answering zero.
#pragma once

#include <d3d9.h>
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "../RecorderSupport.h"
#include "ProxyMethods.h"

extern "C"
{

    // One traced call. args hold the call's scalar arguments in declaration order,
    // pointers as numbers, floats as their bit patterns; the few exceptions are in
    // README.md (SetViewport and SetScissorRect give the fields of the structure).
    struct KvProxyCall
    {
        uint32_t method; // kvproxy::Method
        uint32_t argCount;
        int32_t result; // the HRESULT given back, or the value of a non-HRESULT result
        uint32_t flags; // KV_PROXY_CALL_* bits
        uint64_t args[8];
        uint64_t out;          // the object or value handed back through an out pointer
        uint32_t payload;      // first word in the payload pool, see KvProxy_Payload
        uint32_t payloadWords; // 0 when the call carries no payload
    };

// The proxy answered the call itself; the real object never saw it.
#define KV_PROXY_CALL_FAULTED 1u
// The answer came from the simulated device loss.
#define KV_PROXY_CALL_LOST 2u

    // A rule that makes a method answer hr without reaching the real object.
    struct KvProxyFault
    {
        uint32_t method;    // kvproxy::Method
        int32_t hr;         // ignored for Direct3DCreate9, which answers null
        int32_t times;      // the next N matching calls, or KV_PROXY_FOREVER
        uint32_t condCount; // 0 to 2 conditions on the call's args, all must hold
        struct
        {
            uint32_t arg; // index into KvProxyCall::args
            uint32_t op;  // KV_PROXY_EQ or KV_PROXY_GT (unsigned comparison)
            uint64_t value;
        } cond[2];
    };

#define KV_PROXY_FOREVER (-1)
#define KV_PROXY_EQ 0u
#define KV_PROXY_GT 1u

// Classes of calls that random faults reach (KvProxy_SetRandomFaults).
#define KV_PROXY_RANDOM_CREATE 0x01u  // every Create* of the device and D3D9_CreateDevice
#define KV_PROXY_RANDOM_LOCK 0x02u    // Lock, LockRect and LockBox of buffers, textures and surfaces
#define KV_PROXY_RANDOM_RESET 0x04u   // Reset
#define KV_PROXY_RANDOM_PRESENT 0x08u // Present
#define KV_PROXY_RANDOM_QUERY 0x10u   // Issue and GetData of queries
#define KV_PROXY_RANDOM_ALL 0x1Fu

// Fields of D3DADAPTER_IDENTIFIER9 that KvProxy_SetAdapterIdentifier replaces.
#define KV_PROXY_ID_DRIVER 0x01u
#define KV_PROXY_ID_DESCRIPTION 0x02u
#define KV_PROXY_ID_DEVICENAME 0x04u
#define KV_PROXY_ID_DRIVERVERSION 0x08u
#define KV_PROXY_ID_VENDORID 0x10u
#define KV_PROXY_ID_DEVICEID 0x20u
#define KV_PROXY_ID_SUBSYSID 0x40u
#define KV_PROXY_ID_REVISION 0x80u

// States of the simulated device loss.
#define KV_PROXY_LOSS_NONE 0u
#define KV_PROXY_LOSS_PENDING 1u  // lost after a number of further Present calls
#define KV_PROXY_LOSS_LOST 2u     // TestCooperativeLevel and Present say D3DERR_DEVICELOST
#define KV_PROXY_LOSS_NOTRESET 3u // TestCooperativeLevel says D3DERR_DEVICENOTRESET

} // extern "C"

namespace kvproxy
{

// sizeof(KvProxyCall) and the method count, so a stale DLL is caught.
constexpr uint32_t kAbi = (static_cast<uint32_t>(sizeof(KvProxyCall)) << 16) | kMethodCount;

struct ControlApi
{
    uint32_t (*Abi)();
    void (*ResetAll)();
    void (*SetRecording)(int);
    void (*ClearTrace)();
    uint32_t (*TraceSize)();
    uint32_t (*TraceDropped)();
    const KvProxyCall* (*Trace)();
    const uint32_t* (*Payload)();
    uint32_t (*CallCount)(uint32_t);
    void (*ClearCounts)();
    int (*AddFault)(const KvProxyFault*);
    int (*FaultCallsLeft)(int);
    void (*ClearFaults)();
    int (*SetCapsField)(uint32_t, uint32_t, uint32_t);
    void (*ClearCapsOverrides)();
    void (*SetAdapterIdentifier)(uint32_t, const D3DADAPTER_IDENTIFIER9*);
    void (*SetAdapterCount)(int);
    int (*SetAdapterModes)(uint32_t, const D3DDISPLAYMODE*, uint32_t);
    void (*ClearAdapterOverrides)();
    void (*LoseDevice)(uint32_t);
    void (*AllowDeviceReset)();
    void (*EndDeviceLoss)();
    uint32_t (*DeviceLossState)();
    void (*SetRandomFaults)(uint32_t, uint32_t, uint32_t);
    uint32_t (*RandomFaultsInjected)(uint32_t);
    void (*WatchResources)(int);
};

// The loaded module that carries the control functions, or null. Once the proxy has
// loaded the system's d3d9.dll two modules answer to "d3d9.dll", so the proxy is found
// by its exports rather than by its name.
inline HMODULE ProxyModule()
{
    static HMODULE found = [] {
        if (!GetModuleHandleA("d3d9.dll"))
            LoadLibraryA("d3d9.dll");
        return kvtools::FindLoadedModule([](HMODULE m) { return GetProcAddress(m, "KvProxy_Abi") != nullptr; });
    }();
    return found;
}

// The control functions of the proxy in this process, or all null when there is none
// (or one of another build).
inline const ControlApi& Api()
{
    static const ControlApi api = [] {
        ControlApi a;
        std::memset(&a, 0, sizeof a);
        HMODULE dll = ProxyModule();
        if (!dll)
            return a;
        auto abi = reinterpret_cast<uint32_t (*)()>(reinterpret_cast<void*>(GetProcAddress(dll, "KvProxy_Abi")));
        if (!abi || abi() != kAbi)
            return a;
            // clang-format off
#define KV_PROXY_LOAD(field) \
    a.field = reinterpret_cast<decltype(a.field)>( \
        reinterpret_cast<void*>(GetProcAddress(dll, "KvProxy_" #field)));
    KV_PROXY_LOAD(Abi) KV_PROXY_LOAD(ResetAll) KV_PROXY_LOAD(SetRecording)
    KV_PROXY_LOAD(ClearTrace) KV_PROXY_LOAD(TraceSize) KV_PROXY_LOAD(TraceDropped)
    KV_PROXY_LOAD(Trace) KV_PROXY_LOAD(Payload) KV_PROXY_LOAD(CallCount)
    KV_PROXY_LOAD(ClearCounts) KV_PROXY_LOAD(AddFault) KV_PROXY_LOAD(FaultCallsLeft)
    KV_PROXY_LOAD(ClearFaults) KV_PROXY_LOAD(SetCapsField) KV_PROXY_LOAD(ClearCapsOverrides)
    KV_PROXY_LOAD(SetAdapterIdentifier) KV_PROXY_LOAD(SetAdapterCount)
    KV_PROXY_LOAD(SetAdapterModes) KV_PROXY_LOAD(ClearAdapterOverrides)
    KV_PROXY_LOAD(LoseDevice) KV_PROXY_LOAD(AllowDeviceReset) KV_PROXY_LOAD(EndDeviceLoss)
    KV_PROXY_LOAD(DeviceLossState) KV_PROXY_LOAD(SetRandomFaults) KV_PROXY_LOAD(RandomFaultsInjected)
    KV_PROXY_LOAD(WatchResources)
#undef KV_PROXY_LOAD
            // clang-format on
            return a;
    }();
    return api;
}

inline bool Available()
{
    return Api().ResetAll != nullptr;
}

// Back to a pass-through proxy: trace, counters, faults, overrides and loss cleared.
inline void ResetAll()
{
    if (Available())
        Api().ResetAll();
}

inline void SetRecording(bool on)
{
    if (Available())
        Api().SetRecording(on ? 1 : 0);
}
inline void ClearTrace()
{
    if (Available())
        Api().ClearTrace();
}
inline uint32_t TraceSize()
{
    return Available() ? Api().TraceSize() : 0;
}
inline uint32_t TraceDropped()
{
    return Available() ? Api().TraceDropped() : 0;
}
inline uint32_t CallCount(Method m)
{
    return Available() ? Api().CallCount(static_cast<uint32_t>(m)) : 0;
}
inline void ClearCounts()
{
    if (Available())
        Api().ClearCounts();
}

// ---- faults

inline int AddFault(const KvProxyFault& f)
{
    return Available() ? Api().AddFault(&f) : -1;
}
inline void ClearFaults()
{
    if (Available())
        Api().ClearFaults();
}
// Matching calls a rule still has to fail; 0 once spent, KV_PROXY_FOREVER for ever.
inline int FaultCallsLeft(int rule)
{
    return Available() ? Api().FaultCallsLeft(rule) : 0;
}

inline KvProxyFault MakeFault(Method m, HRESULT hr, int times)
{
    KvProxyFault f;
    std::memset(&f, 0, sizeof f);
    f.method = static_cast<uint32_t>(m);
    f.hr = hr;
    f.times = times;
    return f;
}

inline KvProxyFault& AddCondition(KvProxyFault& f, uint32_t arg, uint32_t op, uint64_t value)
{
    if (f.condCount < 2)
    {
        f.cond[f.condCount].arg = arg;
        f.cond[f.condCount].op = op;
        f.cond[f.condCount].value = value;
        ++f.condCount;
    }
    return f;
}

// `m` answers hr for the next `times` calls (KV_PROXY_FOREVER: until cleared).
inline int FailMethod(Method m, HRESULT hr, int times = 1)
{
    return AddFault(MakeFault(m, hr, times));
}

// Direct3DCreate9 answers null.
inline int FailDirect3DCreate9(int times = 1)
{
    return FailMethod(Method::Direct3DCreate9, E_FAIL, times);
}

// IDirect3D9::CheckDeviceFormat refuses this format with this usage.
inline int FailCheckDeviceFormat(D3DFORMAT format, DWORD usage, HRESULT hr = D3DERR_NOTAVAILABLE,
                                 int times = KV_PROXY_FOREVER)
{
    KvProxyFault f = MakeFault(Method::D3D9_CheckDeviceFormat, hr, times);
    AddCondition(f, 5, KV_PROXY_EQ, static_cast<uint32_t>(format));
    AddCondition(f, 3, KV_PROXY_EQ, usage);
    return AddFault(f);
}

// IDirect3D9::CheckDeviceMultiSampleType refuses every sample count above `samples`.
inline int FailMultiSampleAbove(uint32_t samples, HRESULT hr = D3DERR_NOTAVAILABLE, int times = KV_PROXY_FOREVER)
{
    KvProxyFault f = MakeFault(Method::D3D9_CheckDeviceMultiSampleType, hr, times);
    AddCondition(f, 4, KV_PROXY_GT, samples);
    return AddFault(f);
}

// The device's CreateQuery refuses this query type.
inline int FailCreateQuery(D3DQUERYTYPE type, HRESULT hr = D3DERR_NOTAVAILABLE, int times = KV_PROXY_FOREVER)
{
    KvProxyFault f = MakeFault(Method::CreateQuery, hr, times);
    AddCondition(f, 0, KV_PROXY_EQ, static_cast<uint32_t>(type));
    return AddFault(f);
}

// Seeded random faults on the calls of `classes` (KV_PROXY_RANDOM_*): about perMillion
// of each million such calls answer E_OUTOFMEMORY, D3DERR_OUTOFVIDEOMEMORY,
// D3DERR_INVALIDCALL, D3DERR_DEVICELOST or D3DERR_DEVICEREMOVED. perMillion 0 ends them.
// The same seed and the same calls give the same faults.
inline void SetRandomFaults(uint32_t seed, uint32_t perMillion, uint32_t classes = KV_PROXY_RANDOM_ALL)
{
    if (Available())
        Api().SetRandomFaults(seed, perMillion, classes);
}
// Random faults injected since they were set, in these classes.
inline uint32_t RandomFaultsInjected(uint32_t classes = KV_PROXY_RANDOM_ALL)
{
    return Available() ? Api().RandomFaultsInjected(classes) : 0;
}
// Lock, Unlock, Issue and GetData of the objects the device hands out are counted,
// traced and open to faults while on (ProxyResources.h).
inline void WatchResources(bool on)
{
    if (Available())
        Api().WatchResources(on ? 1 : 0);
}

// ---- capabilities, as both GetDeviceCaps answer them

// A 32-bit field of D3DCAPS9, named: SetCap(KV_PROXY_CAP(MaxAnisotropy), 4).
#define KV_PROXY_CAP(field) static_cast<uint32_t>(offsetof(D3DCAPS9, field))

inline bool SetCapBits(uint32_t offset, uint32_t clearBits, uint32_t setBits)
{
    return Available() && Api().SetCapsField(offset, clearBits, setBits) == 0;
}
inline bool SetCap(uint32_t offset, uint32_t value)
{
    return SetCapBits(offset, 0xFFFFFFFFu, value);
}
inline bool SetCapFloat(uint32_t offset, float value)
{
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return SetCap(offset, bits);
}
inline bool ClearCapBits(uint32_t offset, uint32_t bits)
{
    return SetCapBits(offset, bits, 0);
}
inline void ClearCapsOverrides()
{
    if (Available())
        Api().ClearCapsOverrides();
}

// ---- adapter

inline void SetAdapterIdentifier(uint32_t fields, const D3DADAPTER_IDENTIFIER9& id)
{
    if (Available())
        Api().SetAdapterIdentifier(fields, &id);
}
inline void SetAdapterVendorId(DWORD vendor)
{
    D3DADAPTER_IDENTIFIER9 id;
    std::memset(&id, 0, sizeof id);
    id.VendorId = vendor;
    SetAdapterIdentifier(KV_PROXY_ID_VENDORID, id);
}
inline void SetAdapterDescription(const char* text)
{
    D3DADAPTER_IDENTIFIER9 id;
    std::memset(&id, 0, sizeof id);
    std::strncpy(id.Description, text, sizeof id.Description - 1);
    SetAdapterIdentifier(KV_PROXY_ID_DESCRIPTION, id);
}
// GetAdapterCount answers `count`; a negative count gives the real answer again.
inline void SetAdapterCount(int count)
{
    if (Available())
        Api().SetAdapterCount(count);
}
// GetAdapterModeCount and EnumAdapterModes answer this list for `format`, on every adapter.
inline bool SetAdapterModes(D3DFORMAT format, const D3DDISPLAYMODE* modes, uint32_t count)
{
    return Available() && Api().SetAdapterModes(static_cast<uint32_t>(format), modes, count) == 0;
}
inline void ClearAdapterOverrides()
{
    if (Available())
        Api().ClearAdapterOverrides();
}

// ---- simulated device loss

// The device is lost after `afterPresents` more successful Present calls (0: now).
inline void LoseDevice(uint32_t afterPresents = 0)
{
    if (Available())
        Api().LoseDevice(afterPresents);
}
// From now on TestCooperativeLevel says D3DERR_DEVICENOTRESET and Reset reaches the device;
// a successful Reset ends the loss.
inline void AllowDeviceReset()
{
    if (Available())
        Api().AllowDeviceReset();
}
// The loss ends without a reset.
inline void EndDeviceLoss()
{
    if (Available())
        Api().EndDeviceLoss();
}
inline uint32_t DeviceLossState()
{
    return Available() ? Api().DeviceLossState() : KV_PROXY_LOSS_NONE;
}

// ---- reading the trace

// Position in the trace, for "what happened since".
struct Mark
{
    uint32_t index;
};
inline Mark Here()
{
    return Mark{TraceSize()};
}

inline const KvProxyCall* TraceAt(uint32_t i)
{
    return Available() && i < Api().TraceSize() ? Api().Trace() + i : nullptr;
}

// A pointer as the trace stores it.
inline uint64_t PtrArg(const void* p)
{
    return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(p));
}

inline Method MethodOf(const KvProxyCall& c)
{
    return static_cast<Method>(c.method);
}

inline float ArgFloat(const KvProxyCall& c, uint32_t i)
{
    const uint32_t bits = static_cast<uint32_t>(c.args[i]);
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

inline const uint32_t* PayloadOf(const KvProxyCall& c)
{
    return Available() && c.payloadWords ? Api().Payload() + c.payload : nullptr;
}

// The present parameters given to CreateDevice, Reset or CreateAdditionalSwapChain,
// as the caller passed them in.
inline bool PresentParametersOf(const KvProxyCall& c, D3DPRESENT_PARAMETERS* pp)
{
    const uint32_t* p = PayloadOf(c);
    if (!p || c.payloadWords * 4u < sizeof(D3DPRESENT_PARAMETERS))
        return false;
    std::memcpy(pp, p, sizeof *pp);
    return true;
}

// Constants of Set*ShaderConstantF/I/B, D3DMATRIX of SetTransform, plane of SetClipPlane.
inline const float* FloatsOf(const KvProxyCall& c)
{
    return reinterpret_cast<const float*>(PayloadOf(c));
}

// The text of D3DPERF_BeginEvent, D3DPERF_SetMarker and D3DPERF_SetRegion.
inline std::wstring TextOf(const KvProxyCall& c)
{
    std::wstring s;
    const uint32_t* p = PayloadOf(c);
    for (uint32_t i = 0; p && i < c.payloadWords && p[i]; ++i)
        s.push_back(static_cast<wchar_t>(p[i]));
    return s;
}

} // namespace kvproxy
