// GoogleTest assertions over the proxy's trace, so a test states what the device
// saw in the words of the behaviour it checks:
//
//   auto mark = kvproxy::Here();
//   rs->SetDepthCheckEnabled(true);
//   EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_ZENABLE, 1}}));
//   mark = kvproxy::Here();
//   rs->SetDepthCheckEnabled(true);
//   EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
//
// Each returns a ::testing::AssertionResult whose message lists what was seen.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "ProxyControl.h"

namespace kvproxy
{

enum class Order
{
    InOrder,
    AnyOrder
};

struct RenderState
{
    uint32_t state;
    uint32_t value;
    bool operator==(const RenderState& o) const { return state == o.state && value == o.value; }
    bool operator<(const RenderState& o) const { return state != o.state ? state < o.state : value < o.value; }
};

struct SamplerState
{
    uint32_t sampler;
    uint32_t type;
    uint32_t value;
    bool operator==(const SamplerState& o) const { return sampler == o.sampler && type == o.type && value == o.value; }
    bool operator<(const SamplerState& o) const
    {
        if (sampler != o.sampler)
            return sampler < o.sampler;
        return type != o.type ? type < o.type : value < o.value;
    }
};

// The calls recorded from `from` up to `to` (default: now), optionally of one method.
inline std::vector<KvProxyCall> CallsBetween(Mark from, Mark to)
{
    std::vector<KvProxyCall> out;
    for (uint32_t i = from.index; i < to.index; ++i)
        if (const KvProxyCall* c = TraceAt(i))
            out.push_back(*c);
    return out;
}
inline std::vector<KvProxyCall> CallsSince(Mark from)
{
    return CallsBetween(from, Here());
}
inline std::vector<KvProxyCall> CallsSince(Mark from, Method m)
{
    std::vector<KvProxyCall> out;
    for (const KvProxyCall& c : CallsSince(from))
        if (MethodOf(c) == m)
            out.push_back(c);
    return out;
}

inline std::string HexOf(uint64_t v)
{
    char buf[24];
    std::snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(v));
    return buf;
}

// "SetRenderState(7, 1) -> 0x0", for failure messages.
inline std::string Describe(const KvProxyCall& c)
{
    std::ostringstream s;
    s << MethodName(MethodOf(c)) << "(";
    for (uint32_t i = 0; i < c.argCount; ++i)
        s << (i ? ", " : "") << (c.args[i] < 4096 ? std::to_string(c.args[i]) : HexOf(c.args[i]));
    s << ") -> " << HexOf(static_cast<uint32_t>(c.result));
    if (c.flags & KV_PROXY_CALL_FAULTED)
        s << " [injected]";
    if (c.flags & KV_PROXY_CALL_LOST)
        s << " [lost]";
    return s.str();
}

inline std::string Describe(const std::vector<KvProxyCall>& calls)
{
    std::string s;
    for (const KvProxyCall& c : calls)
        s += "\n    " + Describe(c);
    return s.empty() ? std::string("\n    (no calls)") : s;
}

inline ::testing::AssertionResult ProxyMissing()
{
    return ::testing::AssertionFailure() << "the recording d3d9.dll is not loaded in this process";
}

// Exactly these SetRenderState calls since `from`: in this order, or as a set.
inline ::testing::AssertionResult RenderStatesSet(Mark from, std::vector<RenderState> expected,
                                                  Order order = Order::InOrder)
{
    if (!Available())
        return ProxyMissing();
    std::vector<KvProxyCall> calls = CallsSince(from, Method::SetRenderState);
    std::vector<RenderState> seen;
    for (const KvProxyCall& c : calls)
        seen.push_back(RenderState{static_cast<uint32_t>(c.args[0]), static_cast<uint32_t>(c.args[1])});
    if (order == Order::AnyOrder)
    {
        std::sort(seen.begin(), seen.end());
        std::sort(expected.begin(), expected.end());
    }
    if (seen == expected)
        return ::testing::AssertionSuccess();
    std::ostringstream s;
    s << "expected render states";
    for (const RenderState& r : expected)
        s << " (" << r.state << ", " << r.value << ")";
    if (expected.empty())
        s << " none";
    s << ", the device saw:" << Describe(calls);
    return ::testing::AssertionFailure() << s.str();
}

// Exactly these SetSamplerState calls since `from`.
inline ::testing::AssertionResult SamplerStatesSet(Mark from, std::vector<SamplerState> expected,
                                                   Order order = Order::InOrder)
{
    if (!Available())
        return ProxyMissing();
    std::vector<KvProxyCall> calls = CallsSince(from, Method::SetSamplerState);
    std::vector<SamplerState> seen;
    for (const KvProxyCall& c : calls)
        seen.push_back(SamplerState{static_cast<uint32_t>(c.args[0]), static_cast<uint32_t>(c.args[1]),
                                    static_cast<uint32_t>(c.args[2])});
    if (order == Order::AnyOrder)
    {
        std::sort(seen.begin(), seen.end());
        std::sort(expected.begin(), expected.end());
    }
    if (seen == expected)
        return ::testing::AssertionSuccess();
    std::ostringstream s;
    s << "expected sampler states";
    for (const SamplerState& r : expected)
        s << " (" << r.sampler << ", " << r.type << ", " << r.value << ")";
    if (expected.empty())
        s << " none";
    s << ", the device saw:" << Describe(calls);
    return ::testing::AssertionFailure() << s.str();
}

// No call on the device between the two marks (or since `from`).
inline ::testing::AssertionResult NoDeviceCalls(Mark from, Mark to)
{
    if (!Available())
        return ProxyMissing();
    std::vector<KvProxyCall> calls;
    for (const KvProxyCall& c : CallsBetween(from, to))
        if (IsDeviceMethod(MethodOf(c)))
            calls.push_back(c);
    if (calls.empty())
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "expected no device call, the device saw:" << Describe(calls);
}
inline ::testing::AssertionResult NoDeviceCalls(Mark from)
{
    return NoDeviceCalls(from, Here());
}

// None of these methods called since `from`.
inline ::testing::AssertionResult NoCallsOf(Mark from, std::initializer_list<Method> methods)
{
    if (!Available())
        return ProxyMissing();
    std::vector<KvProxyCall> calls;
    for (const KvProxyCall& c : CallsSince(from))
        if (std::find(methods.begin(), methods.end(), MethodOf(c)) != methods.end())
            calls.push_back(c);
    if (calls.empty())
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "expected none of these calls, but saw:" << Describe(calls);
}

// The results the calls of `m` since `from` got, in order: the HRESULT path.
inline ::testing::AssertionResult ResultsAre(Mark from, Method m, std::vector<HRESULT> expected)
{
    if (!Available())
        return ProxyMissing();
    std::vector<KvProxyCall> calls = CallsSince(from, m);
    bool same = calls.size() == expected.size();
    for (size_t i = 0; same && i < calls.size(); ++i)
        same = calls[i].result == static_cast<int32_t>(expected[i]);
    if (same)
        return ::testing::AssertionSuccess();
    std::ostringstream s;
    s << "expected " << expected.size() << " call(s) of " << MethodName(m) << " answering";
    for (HRESULT hr : expected)
        s << " " << HexOf(static_cast<uint32_t>(hr));
    s << ", saw:" << Describe(calls);
    return ::testing::AssertionFailure() << s.str();
}

// These methods were called since `from` in this order, other calls between them allowed.
inline ::testing::AssertionResult CalledInOrder(Mark from, std::initializer_list<Method> methods)
{
    if (!Available())
        return ProxyMissing();
    std::vector<KvProxyCall> calls = CallsSince(from);
    auto next = methods.begin();
    for (const KvProxyCall& c : calls)
        if (next != methods.end() && MethodOf(c) == *next)
            ++next;
    if (next == methods.end())
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "missing " << MethodName(*next)
                                         << " in the expected order; saw:" << Describe(calls);
}

// How many times `m` was called since `from`.
inline size_t CountSince(Mark from, Method m)
{
    return CallsSince(from, m).size();
}

} // namespace kvproxy
