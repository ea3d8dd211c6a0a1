// What the recording d3d9.dll knows and has been told: counters, the trace, the
// fault rules, the overrides and the simulated loss. One instance per process.
#pragma once

#include <d3d9.h>
#include <windows.h>

#include <atomic>
#include <cstdint>

#include "ProxyControl.h"

class ProxyState
{
public:
    static constexpr uint32_t kTraceCapacity = 1u << 16;
    static constexpr uint32_t kPayloadCapacity = 1u << 20; // 32-bit words
    static constexpr uint32_t kMaxFaults = 32;
    static constexpr uint32_t kMaxCapsFields = 32;
    static constexpr uint32_t kMaxModeFormats = 8;
    static constexpr uint32_t kMaxModes = 64;

    static ProxyState& Get();
    // The state when any call has made it, else null: for readers that must not allocate.
    static ProxyState* IfMade();

    // Counts the call and, while recording, reserves its trace slot (null when off or full).
    KvProxyCall* Begin(kvproxy::Method m, const uint64_t* args, uint32_t argCount);
    // The first fault rule that matches the call, consuming one of its calls.
    bool TakeFault(kvproxy::Method m, const uint64_t* args, uint32_t argCount, HRESULT* hr);
    // Copies data into the payload pool and points the record at it.
    void AttachPayload(KvProxyCall* rec, const void* data, size_t bytes);
    void AttachText(KvProxyCall* rec, const WCHAR* text);

    void ResetAll();
    void SetRecording(bool on) { m_recording.store(on, std::memory_order_relaxed); }
    void ClearTrace();
    uint32_t TraceSize() const;
    uint32_t TraceDropped() const { return m_dropped.load(std::memory_order_relaxed); }
    const KvProxyCall* Trace() const { return m_trace; }
    const uint32_t* Payload() const { return m_payload; }
    uint32_t CallCount(uint32_t method) const;
    void ClearCounts();

    int AddFault(const KvProxyFault& f);
    int FaultCallsLeft(int rule) const;
    void ClearFaults();

    // Seeded random faults: of the calls in `classes` (KV_PROXY_RANDOM_* bits), about
    // perMillion in a million answer one of the failures a driver gives.
    void SetRandomFaults(uint32_t seed, uint32_t perMillion, uint32_t classes);
    uint32_t RandomFaultsInjected(uint32_t classes) const;

    int SetCapsField(uint32_t offset, uint32_t clearBits, uint32_t setBits);
    void ClearCapsOverrides() { m_capsFieldCount = 0; }
    void ApplyCaps(D3DCAPS9* caps) const;

    void SetAdapterIdentifier(uint32_t fields, const D3DADAPTER_IDENTIFIER9& id);
    void ApplyAdapterIdentifier(D3DADAPTER_IDENTIFIER9* id) const;
    void SetAdapterCount(int count) { m_adapterCount = count; }
    int AdapterCount() const { return m_adapterCount; }
    int SetAdapterModes(uint32_t format, const D3DDISPLAYMODE* modes, uint32_t count);
    // The replaced mode list of a format, or null when the real one stands.
    const D3DDISPLAYMODE* AdapterModes(uint32_t format, uint32_t* count) const;
    void ClearAdapterOverrides();

    void LoseDevice(uint32_t afterPresents);
    void AllowDeviceReset();
    void EndDeviceLoss() { m_loss = KV_PROXY_LOSS_NONE; }
    uint32_t LossState() const { return m_loss; }
    // Present: true when the device counts as lost for this call.
    bool PresentMeetsLoss();
    // A Reset that reached the device and worked ends a loss that allowed it.
    void ResetSucceeded();

private:
    ProxyState();
    bool TakeRandomFault(kvproxy::Method m, HRESULT* hr);
    void ReadEnvironment();

    struct CapsField
    {
        uint32_t offset, clearBits, setBits;
    };
    struct ModeList
    {
        uint32_t format, count;
        D3DDISPLAYMODE modes[kMaxModes];
    };

    KvProxyCall* m_trace;
    uint32_t* m_payload;
    std::atomic<uint32_t> m_traceNext{0};
    std::atomic<uint32_t> m_payloadNext{0};
    std::atomic<uint32_t> m_dropped{0};
    std::atomic<bool> m_recording{true};
    std::atomic<uint32_t> m_counts[kvproxy::kMethodCount];

    KvProxyFault m_faults[kMaxFaults];
    bool m_faultUsed[kMaxFaults];
    std::atomic<uint32_t> m_faultRules{0};
    CRITICAL_SECTION m_faultLock;

    std::atomic<uint32_t> m_randomClasses{0};
    uint32_t m_randomPerMillion = 0;
    uint64_t m_random = 0;
    std::atomic<uint32_t> m_randomInjected[8];

    CapsField m_capsFields[kMaxCapsFields];
    uint32_t m_capsFieldCount = 0;

    uint32_t m_idFields = 0;
    D3DADAPTER_IDENTIFIER9 m_id;
    int m_adapterCount = -1;
    ModeList m_modeLists[kMaxModeFormats];
    uint32_t m_modeListCount = 0;

    uint32_t m_loss = KV_PROXY_LOSS_NONE;
    uint32_t m_presentsBeforeLoss = 0;
};
