// The control functions that tests find with GetProcAddress (see ProxyControl.h).
#include "ProxyResources.h"
#include "ProxyState.h"

extern "C"
{

    uint32_t KvProxy_Abi()
    {
        return kvproxy::kAbi;
    }
    void KvProxy_ResetAll()
    {
        ProxyState::Get().ResetAll();
    }
    void KvProxy_SetRecording(int on)
    {
        ProxyState::Get().SetRecording(on != 0);
    }
    void KvProxy_ClearTrace()
    {
        ProxyState::Get().ClearTrace();
    }
    uint32_t KvProxy_TraceSize()
    {
        return ProxyState::Get().TraceSize();
    }
    uint32_t KvProxy_TraceDropped()
    {
        return ProxyState::Get().TraceDropped();
    }
    const KvProxyCall* KvProxy_Trace()
    {
        return ProxyState::Get().Trace();
    }
    const uint32_t* KvProxy_Payload()
    {
        return ProxyState::Get().Payload();
    }
    uint32_t KvProxy_CallCount(uint32_t method)
    {
        return ProxyState::Get().CallCount(method);
    }
    void KvProxy_ClearCounts()
    {
        ProxyState::Get().ClearCounts();
    }

    int KvProxy_AddFault(const KvProxyFault* fault)
    {
        return fault ? ProxyState::Get().AddFault(*fault) : -1;
    }
    int KvProxy_FaultCallsLeft(int rule)
    {
        return ProxyState::Get().FaultCallsLeft(rule);
    }
    void KvProxy_ClearFaults()
    {
        ProxyState::Get().ClearFaults();
    }

    int KvProxy_SetCapsField(uint32_t offset, uint32_t clearBits, uint32_t setBits)
    {
        return ProxyState::Get().SetCapsField(offset, clearBits, setBits);
    }
    void KvProxy_ClearCapsOverrides()
    {
        ProxyState::Get().ClearCapsOverrides();
    }

    void KvProxy_SetAdapterIdentifier(uint32_t fields, const D3DADAPTER_IDENTIFIER9* id)
    {
        if (id)
            ProxyState::Get().SetAdapterIdentifier(fields, *id);
    }
    void KvProxy_SetAdapterCount(int count)
    {
        ProxyState::Get().SetAdapterCount(count);
    }
    int KvProxy_SetAdapterModes(uint32_t format, const D3DDISPLAYMODE* modes, uint32_t count)
    {
        return ProxyState::Get().SetAdapterModes(format, modes, count);
    }
    void KvProxy_ClearAdapterOverrides()
    {
        ProxyState::Get().ClearAdapterOverrides();
    }

    void KvProxy_LoseDevice(uint32_t afterPresents)
    {
        ProxyState::Get().LoseDevice(afterPresents);
    }
    void KvProxy_AllowDeviceReset()
    {
        ProxyState::Get().AllowDeviceReset();
    }
    void KvProxy_EndDeviceLoss()
    {
        ProxyState::Get().EndDeviceLoss();
    }
    uint32_t KvProxy_DeviceLossState()
    {
        return ProxyState::Get().LossState();
    }

    void KvProxy_SetRandomFaults(uint32_t seed, uint32_t perMillion, uint32_t classes)
    {
        ProxyState::Get().SetRandomFaults(seed, perMillion, classes);
    }
    uint32_t KvProxy_RandomFaultsInjected(uint32_t classes)
    {
        return ProxyState::Get().RandomFaultsInjected(classes);
    }
    void KvProxy_WatchResources(int on)
    {
        ProxyResources::SetWatching(on != 0);
    }

} // extern "C"
