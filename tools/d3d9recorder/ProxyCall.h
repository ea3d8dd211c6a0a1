// One call passing through the proxy: counted and traced at construction, checked
// against the fault rules, and given its result when the real object has answered.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "ProxyState.h"

class ProxyCall
{
public:
    ProxyCall(kvproxy::Method m, std::initializer_list<uint64_t> args) : m_method(m)
    {
        m_argCount = static_cast<uint32_t>(args.size() > 8 ? 8 : args.size());
        uint32_t i = 0;
        for (uint64_t a : args)
        {
            if (i == m_argCount)
                break;
            m_args[i++] = a;
        }
        ProxyState& state = ProxyState::Get();
        m_rec = state.Begin(m, m_args, m_argCount);
        m_faulted = state.TakeFault(m, m_args, m_argCount, &m_faultHr);
        if (m_faulted && m_rec)
        {
            m_rec->flags |= KV_PROXY_CALL_FAULTED;
            m_rec->result = m_faultHr;
        }
    }

    // The call is answered by an injected fault and must not reach the real object.
    bool Faulted() const { return m_faulted; }
    HRESULT FaultResult() const { return m_faultHr; }

    template <class T>
    T Done(T value)
    {
        if (m_rec)
            m_rec->result = static_cast<int32_t>(value);
        return value;
    }
    // An answer of the simulated device loss.
    HRESULT Lost(HRESULT hr)
    {
        if (m_rec)
            m_rec->flags |= KV_PROXY_CALL_LOST;
        return Done(hr);
    }
    void Out(uint64_t value)
    {
        if (m_rec)
            m_rec->out = value;
    }
    void OutPointer(const void* p) { Out(static_cast<uint64_t>(reinterpret_cast<uintptr_t>(p))); }
    void Payload(const void* data, size_t bytes) { ProxyState::Get().AttachPayload(m_rec, data, bytes); }
    void Text(const WCHAR* text) { ProxyState::Get().AttachText(m_rec, text); }

private:
    kvproxy::Method m_method;
    uint64_t m_args[8] = {};
    uint32_t m_argCount = 0;
    KvProxyCall* m_rec = nullptr;
    bool m_faulted = false;
    HRESULT m_faultHr = S_OK;
};

// Arguments as trace numbers.
inline uint64_t PtrArg(const void* p)
{
    return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(p));
}
inline uint64_t FloatArg(float f)
{
    uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    return bits;
}
