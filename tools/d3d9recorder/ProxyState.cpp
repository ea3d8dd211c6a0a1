#include "ProxyState.h"

#include "../RecorderSupport.h"
#include "ProxyResources.h"

#include <cstdio>
#include <cstring>
#include <new>

namespace
{
// Lives as long as the process: the DLL is never unloaded while a program runs.
std::atomic<ProxyState*> g_state{nullptr};
} // namespace

ProxyState& ProxyState::Get()
{
    static ProxyState* state = [] {
        ProxyState* made = new ProxyState;
        g_state.store(made, std::memory_order_release);
        return made;
    }();
    return *state;
}

ProxyState* ProxyState::IfMade()
{
    return g_state.load(std::memory_order_acquire);
}

ProxyState::ProxyState()
{
    // Both pools are taken once, so recording a call never allocates.
    m_trace = new KvProxyCall[kTraceCapacity];
    m_payload = new uint32_t[kPayloadCapacity];
    for (auto& c : m_counts)
        c.store(0, std::memory_order_relaxed);
    std::memset(m_faults, 0, sizeof m_faults);
    std::memset(m_faultUsed, 0, sizeof m_faultUsed);
    std::memset(&m_id, 0, sizeof m_id);
    std::memset(m_modeLists, 0, sizeof m_modeLists);
    for (auto& c : m_randomInjected)
        c.store(0, std::memory_order_relaxed);
    InitializeCriticalSection(&m_faultLock);
    ReadEnvironment();
}

void ProxyState::ReadEnvironment()
{
    // "<seed>:<per million>[:<classes>]" puts any program under random faults from its first call.
    char text[64];
    const DWORD n = GetEnvironmentVariableA("KV_D3D9RECORDER_FAULTS", text, sizeof text);
    unsigned seed = 0, perMillion = 0, classes = KV_PROXY_RANDOM_ALL;
    if (n > 0 && n < sizeof text && std::sscanf(text, "%u:%u:%u", &seed, &perMillion, &classes) >= 2)
        SetRandomFaults(seed, perMillion, classes);
    if (GetEnvironmentVariableA("KV_D3D9RECORDER_WATCH", text, sizeof text) > 0 && text[0] == '1')
        ProxyResources::SetWatching(true);
}

namespace
{

// The class of random faults a method belongs to, or 0.
uint32_t RandomClass(kvproxy::Method m)
{
    using kvproxy::Method;
    switch (m)
    {
    case Method::D3D9_CreateDevice:
    case Method::CreateAdditionalSwapChain:
    case Method::CreateTexture:
    case Method::CreateVolumeTexture:
    case Method::CreateCubeTexture:
    case Method::CreateVertexBuffer:
    case Method::CreateIndexBuffer:
    case Method::CreateRenderTarget:
    case Method::CreateDepthStencilSurface:
    case Method::CreateOffscreenPlainSurface:
    case Method::CreateStateBlock:
    case Method::CreateVertexDeclaration:
    case Method::CreateVertexShader:
    case Method::CreatePixelShader:
    case Method::CreateQuery:
        return KV_PROXY_RANDOM_CREATE;
    case Method::Texture_LockRect:
    case Method::CubeTexture_LockRect:
    case Method::VolumeTexture_LockBox:
    case Method::Surface_LockRect:
    case Method::VertexBuffer_Lock:
    case Method::IndexBuffer_Lock:
        return KV_PROXY_RANDOM_LOCK;
    case Method::Reset:
        return KV_PROXY_RANDOM_RESET;
    case Method::Present:
        return KV_PROXY_RANDOM_PRESENT;
    case Method::Query_Issue:
    case Method::Query_GetData:
        return KV_PROXY_RANDOM_QUERY;
    default:
        return 0;
    }
}

unsigned ClassIndex(uint32_t cls)
{
    unsigned i = 0;
    while (cls > 1)
    {
        cls >>= 1;
        ++i;
    }
    return i;
}

} // namespace

void ProxyState::SetRandomFaults(uint32_t seed, uint32_t perMillion, uint32_t classes)
{
    EnterCriticalSection(&m_faultLock);
    m_random = 0x9E3779B97F4A7C15ull ^ seed;
    m_randomPerMillion = perMillion > 1000000 ? 1000000 : perMillion;
    for (auto& c : m_randomInjected)
        c.store(0, std::memory_order_relaxed);
    m_randomClasses.store(perMillion ? classes & KV_PROXY_RANDOM_ALL : 0, std::memory_order_relaxed);
    LeaveCriticalSection(&m_faultLock);
    // Locks and queries are calls on the resource objects: watch them.
    if (perMillion && (classes & (KV_PROXY_RANDOM_LOCK | KV_PROXY_RANDOM_QUERY)))
        ProxyResources::SetWatching(true);
}

uint32_t ProxyState::RandomFaultsInjected(uint32_t classes) const
{
    uint32_t n = 0;
    for (unsigned i = 0; i < 8; ++i)
        if (classes & (1u << i))
            n += m_randomInjected[i].load(std::memory_order_relaxed);
    return n;
}

bool ProxyState::TakeRandomFault(kvproxy::Method m, HRESULT* hr)
{
    const uint32_t cls = RandomClass(m);
    if (!(cls & m_randomClasses.load(std::memory_order_relaxed)))
        return false;
    // The failures a driver answers: out of memory, a refused call, a lost or removed device.
    static const HRESULT kResults[] = {E_OUTOFMEMORY, D3DERR_OUTOFVIDEOMEMORY, D3DERR_INVALIDCALL, D3DERR_DEVICELOST,
                                       D3DERR_DEVICEREMOVED};
    EnterCriticalSection(&m_faultLock);
    const uint64_t z = kvtools::NextDraw(m_random);
    const bool hit = (z % 1000000u) < m_randomPerMillion;
    if (hit)
        *hr = kResults[(z >> 32) % (sizeof kResults / sizeof kResults[0])];
    LeaveCriticalSection(&m_faultLock);
    if (hit)
        m_randomInjected[ClassIndex(cls)].fetch_add(1, std::memory_order_relaxed);
    return hit;
}

KvProxyCall* ProxyState::Begin(kvproxy::Method m, const uint64_t* args, uint32_t argCount)
{
    const uint32_t id = static_cast<uint32_t>(m);
    m_counts[id].fetch_add(1, std::memory_order_relaxed);
    if (!m_recording.load(std::memory_order_relaxed))
        return nullptr;
    const uint32_t slot = m_traceNext.fetch_add(1, std::memory_order_relaxed);
    if (slot >= kTraceCapacity)
    {
        m_traceNext.store(kTraceCapacity, std::memory_order_relaxed);
        m_dropped.fetch_add(1, std::memory_order_relaxed);
        return nullptr;
    }
    KvProxyCall* rec = &m_trace[slot];
    rec->method = id;
    rec->argCount = argCount > 8 ? 8 : argCount;
    rec->result = 0;
    rec->flags = 0;
    for (uint32_t i = 0; i < 8; ++i)
        rec->args[i] = i < rec->argCount ? args[i] : 0;
    rec->out = 0;
    rec->payload = 0;
    rec->payloadWords = 0;
    return rec;
}

bool ProxyState::TakeFault(kvproxy::Method m, const uint64_t* args, uint32_t argCount, HRESULT* hr)
{
    if (m_faultRules.load(std::memory_order_relaxed) == 0)
        return TakeRandomFault(m, hr);
    const uint32_t id = static_cast<uint32_t>(m);
    bool hit = false;
    EnterCriticalSection(&m_faultLock);
    for (uint32_t i = 0; i < kMaxFaults && !hit; ++i)
    {
        KvProxyFault& f = m_faults[i];
        if (!m_faultUsed[i] || f.method != id || f.times == 0)
            continue;
        bool match = true;
        for (uint32_t c = 0; c < f.condCount && match; ++c)
        {
            const uint32_t a = f.cond[c].arg;
            const uint64_t v = a < argCount ? args[a] : 0;
            match = f.cond[c].op == KV_PROXY_GT ? v > f.cond[c].value : v == f.cond[c].value;
        }
        if (!match)
            continue;
        hit = true;
        *hr = f.hr;
        if (f.times > 0 && --f.times == 0)
        {
            m_faultUsed[i] = false;
            m_faultRules.fetch_sub(1, std::memory_order_relaxed);
        }
    }
    LeaveCriticalSection(&m_faultLock);
    return hit || TakeRandomFault(m, hr);
}

void ProxyState::AttachPayload(KvProxyCall* rec, const void* data, size_t bytes)
{
    if (!rec || !data || bytes == 0)
        return;
    const uint32_t words = static_cast<uint32_t>((bytes + 3) / 4);
    const uint32_t at = m_payloadNext.fetch_add(words, std::memory_order_relaxed);
    if (words > kPayloadCapacity || at > kPayloadCapacity - words)
    {
        m_payloadNext.store(kPayloadCapacity, std::memory_order_relaxed);
        m_dropped.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    m_payload[at + words - 1] = 0;
    std::memcpy(m_payload + at, data, bytes);
    rec->payload = at;
    rec->payloadWords = words;
}

void ProxyState::AttachText(KvProxyCall* rec, const WCHAR* text)
{
    if (!rec || !text)
        return;
    // One character a word, with the terminating zero, capped so a runaway string stays small.
    uint32_t buf[256];
    uint32_t n = 0;
    while (n < 255 && text[n])
    {
        buf[n] = text[n];
        ++n;
    }
    buf[n++] = 0;
    AttachPayload(rec, buf, n * sizeof(uint32_t));
}

void ProxyState::ResetAll()
{
    ClearTrace();
    ClearCounts();
    ClearFaults();
    ClearCapsOverrides();
    ClearAdapterOverrides();
    EndDeviceLoss();
    SetRandomFaults(0, 0, 0);
    ProxyResources::SetWatching(false);
    SetRecording(true);
}

void ProxyState::ClearTrace()
{
    m_traceNext.store(0, std::memory_order_relaxed);
    m_payloadNext.store(0, std::memory_order_relaxed);
    m_dropped.store(0, std::memory_order_relaxed);
}

uint32_t ProxyState::TraceSize() const
{
    const uint32_t n = m_traceNext.load(std::memory_order_relaxed);
    return n < kTraceCapacity ? n : kTraceCapacity;
}

uint32_t ProxyState::CallCount(uint32_t method) const
{
    return method < kvproxy::kMethodCount ? m_counts[method].load(std::memory_order_relaxed) : 0;
}

void ProxyState::ClearCounts()
{
    for (auto& c : m_counts)
        c.store(0, std::memory_order_relaxed);
}

int ProxyState::AddFault(const KvProxyFault& f)
{
    if (f.method >= kvproxy::kMethodCount || f.condCount > 2 || f.times == 0 || f.times < KV_PROXY_FOREVER)
        return -1;
    int slot = -1;
    EnterCriticalSection(&m_faultLock);
    for (uint32_t i = 0; i < kMaxFaults; ++i)
    {
        if (m_faultUsed[i])
            continue;
        m_faults[i] = f;
        m_faultUsed[i] = true;
        m_faultRules.fetch_add(1, std::memory_order_relaxed);
        slot = static_cast<int>(i);
        break;
    }
    LeaveCriticalSection(&m_faultLock);
    return slot;
}

int ProxyState::FaultCallsLeft(int rule) const
{
    if (rule < 0 || rule >= static_cast<int>(kMaxFaults))
        return 0;
    return m_faultUsed[rule] ? m_faults[rule].times : 0;
}

void ProxyState::ClearFaults()
{
    EnterCriticalSection(&m_faultLock);
    std::memset(m_faultUsed, 0, sizeof m_faultUsed);
    m_faultRules.store(0, std::memory_order_relaxed);
    LeaveCriticalSection(&m_faultLock);
}

int ProxyState::SetCapsField(uint32_t offset, uint32_t clearBits, uint32_t setBits)
{
    if (offset % 4 != 0 || offset > sizeof(D3DCAPS9) - 4)
        return -1;
    for (uint32_t i = 0; i < m_capsFieldCount; ++i)
    {
        if (m_capsFields[i].offset == offset)
        {
            // A later override of the same field builds on the earlier one.
            m_capsFields[i].clearBits |= clearBits;
            m_capsFields[i].setBits = (m_capsFields[i].setBits & ~clearBits) | setBits;
            return 0;
        }
    }
    if (m_capsFieldCount == kMaxCapsFields)
        return -1;
    m_capsFields[m_capsFieldCount++] = CapsField{offset, clearBits, setBits};
    return 0;
}

void ProxyState::ApplyCaps(D3DCAPS9* caps) const
{
    if (!caps)
        return;
    unsigned char* bytes = reinterpret_cast<unsigned char*>(caps);
    for (uint32_t i = 0; i < m_capsFieldCount; ++i)
    {
        const CapsField& f = m_capsFields[i];
        uint32_t v;
        std::memcpy(&v, bytes + f.offset, sizeof v);
        v = (v & ~f.clearBits) | f.setBits;
        std::memcpy(bytes + f.offset, &v, sizeof v);
    }
}

void ProxyState::SetAdapterIdentifier(uint32_t fields, const D3DADAPTER_IDENTIFIER9& id)
{
    if (fields & KV_PROXY_ID_DRIVER)
        std::memcpy(m_id.Driver, id.Driver, sizeof m_id.Driver);
    if (fields & KV_PROXY_ID_DESCRIPTION)
        std::memcpy(m_id.Description, id.Description, sizeof m_id.Description);
    if (fields & KV_PROXY_ID_DEVICENAME)
        std::memcpy(m_id.DeviceName, id.DeviceName, sizeof m_id.DeviceName);
    if (fields & KV_PROXY_ID_DRIVERVERSION)
        m_id.DriverVersion = id.DriverVersion;
    if (fields & KV_PROXY_ID_VENDORID)
        m_id.VendorId = id.VendorId;
    if (fields & KV_PROXY_ID_DEVICEID)
        m_id.DeviceId = id.DeviceId;
    if (fields & KV_PROXY_ID_SUBSYSID)
        m_id.SubSysId = id.SubSysId;
    if (fields & KV_PROXY_ID_REVISION)
        m_id.Revision = id.Revision;
    m_idFields |= fields;
}

void ProxyState::ApplyAdapterIdentifier(D3DADAPTER_IDENTIFIER9* id) const
{
    if (!id || !m_idFields)
        return;
    if (m_idFields & KV_PROXY_ID_DRIVER)
        std::memcpy(id->Driver, m_id.Driver, sizeof id->Driver);
    if (m_idFields & KV_PROXY_ID_DESCRIPTION)
        std::memcpy(id->Description, m_id.Description, sizeof id->Description);
    if (m_idFields & KV_PROXY_ID_DEVICENAME)
        std::memcpy(id->DeviceName, m_id.DeviceName, sizeof id->DeviceName);
    if (m_idFields & KV_PROXY_ID_DRIVERVERSION)
        id->DriverVersion = m_id.DriverVersion;
    if (m_idFields & KV_PROXY_ID_VENDORID)
        id->VendorId = m_id.VendorId;
    if (m_idFields & KV_PROXY_ID_DEVICEID)
        id->DeviceId = m_id.DeviceId;
    if (m_idFields & KV_PROXY_ID_SUBSYSID)
        id->SubSysId = m_id.SubSysId;
    if (m_idFields & KV_PROXY_ID_REVISION)
        id->Revision = m_id.Revision;
}

int ProxyState::SetAdapterModes(uint32_t format, const D3DDISPLAYMODE* modes, uint32_t count)
{
    if (count > kMaxModes || (count && !modes))
        return -1;
    ModeList* list = nullptr;
    for (uint32_t i = 0; i < m_modeListCount && !list; ++i)
        if (m_modeLists[i].format == format)
            list = &m_modeLists[i];
    if (!list)
    {
        if (m_modeListCount == kMaxModeFormats)
            return -1;
        list = &m_modeLists[m_modeListCount++];
    }
    list->format = format;
    list->count = count;
    if (count)
        std::memcpy(list->modes, modes, count * sizeof *modes);
    return 0;
}

const D3DDISPLAYMODE* ProxyState::AdapterModes(uint32_t format, uint32_t* count) const
{
    for (uint32_t i = 0; i < m_modeListCount; ++i)
    {
        if (m_modeLists[i].format == format)
        {
            *count = m_modeLists[i].count;
            return m_modeLists[i].modes;
        }
    }
    *count = 0;
    return nullptr;
}

void ProxyState::ClearAdapterOverrides()
{
    m_idFields = 0;
    m_adapterCount = -1;
    m_modeListCount = 0;
}

void ProxyState::LoseDevice(uint32_t afterPresents)
{
    m_presentsBeforeLoss = afterPresents;
    m_loss = afterPresents ? KV_PROXY_LOSS_PENDING : KV_PROXY_LOSS_LOST;
}

void ProxyState::AllowDeviceReset()
{
    if (m_loss != KV_PROXY_LOSS_NONE)
        m_loss = KV_PROXY_LOSS_NOTRESET;
}

bool ProxyState::PresentMeetsLoss()
{
    if (m_loss == KV_PROXY_LOSS_PENDING)
    {
        // This Present still works; the one after the last allowed finds the device gone.
        if (m_presentsBeforeLoss > 0)
        {
            --m_presentsBeforeLoss;
            return false;
        }
        m_loss = KV_PROXY_LOSS_LOST;
    }
    return m_loss == KV_PROXY_LOSS_LOST || m_loss == KV_PROXY_LOSS_NOTRESET;
}

void ProxyState::ResetSucceeded()
{
    if (m_loss == KV_PROXY_LOSS_NOTRESET)
        m_loss = KV_PROXY_LOSS_NONE;
}
