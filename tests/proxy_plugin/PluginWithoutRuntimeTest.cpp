// The render system made through the plug-in's export, with the Direct3D runtime
// refusing or answering through the recording d3d9.dll.
#include "D3D9RenderSystem.h"

#include "engine/Log.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProxyExpect.h"

using kvproxy::Method;

namespace
{

struct PluginOnProxy : public ::testing::Test
{
    void SetUp() override
    {
        ASSERT_TRUE(kvproxy::Available()) << "this suite must run with the recording d3d9.dll";
        kvproxy::ResetAll();
        plugin = LoadLibraryA("D3D9RenderSystem.dll");
        ASSERT_NE(nullptr, plugin);
        create = reinterpret_cast<kv::PFN_CreateRenderSystem>(
            reinterpret_cast<void*>(GetProcAddress(plugin, "CreateRenderSystem")));
        ASSERT_NE(nullptr, create);
        kv::ClearLog();
    }

    void TearDown() override
    {
        kvproxy::ResetAll();
        EXPECT_EQ(nullptr, kv::GetRenderSystem()) << "a test left its render system alive";
    }

    static std::vector<std::string> Errors() { return kv::GetLogTexts(kv::LOG_ERROR); }

    HMODULE plugin = nullptr;
    kv::PFN_CreateRenderSystem create = nullptr;
};

TEST_F(PluginOnProxy, WithoutTheRuntimeTheObjectBuildsAndInitFailsAtBuildDevice)
{
    kvproxy::FailDirect3DCreate9(1);
    kvproxy::Mark mark = kvproxy::Here();
    kv::CRenderSystem* rs = create();
    ASSERT_NE(nullptr, rs);
    EXPECT_EQ(rs, kv::GetRenderSystem());

    std::vector<KvProxyCall> creates = kvproxy::CallsSince(mark, Method::Direct3DCreate9);
    ASSERT_EQ(1u, creates.size());
    EXPECT_EQ(32u, creates[0].args[0]);
    EXPECT_TRUE(creates[0].flags & KV_PROXY_CALL_FAULTED);
    EXPECT_EQ(0u, creates[0].out);
    EXPECT_EQ(nullptr, kv::GetD3D9RenderSystem()->m_pD3D9);
    EXPECT_TRUE(Errors().empty()) << "building the object reports nothing";

    EXPECT_FALSE(rs->Init(GetDesktopWindow(), 640, 480, false, false, 0));
    EXPECT_EQ((std::vector<std::string>{"Cannot Create D3D9", "Failed to BuildDevice"}), Errors());
    EXPECT_EQ(nullptr, kv::GetD3D9RenderSystem()->m_pD3D9Device);
    // Nothing was asked of a runtime that is not there, and the proxy was not asked again.
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::Direct3DCreate9));
    EXPECT_TRUE(kvproxy::NoCallsOf(
        mark, {Method::D3D9_GetAdapterCount, Method::D3D9_GetDeviceCaps, Method::D3D9_CreateDevice}));
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    delete rs;
}

TEST_F(PluginOnProxy, WithTheRuntimeTheObjectKeepsWhatDirect3DCreate9Gave)
{
    kvproxy::Mark mark = kvproxy::Here();
    kv::CRenderSystem* rs = create();
    ASSERT_NE(nullptr, rs);
    std::vector<KvProxyCall> creates = kvproxy::CallsSince(mark, Method::Direct3DCreate9);
    ASSERT_EQ(1u, creates.size());
    EXPECT_EQ(32u, creates[0].args[0]);
    ASSERT_NE(0u, creates[0].out);
    EXPECT_EQ(creates[0].out, kvproxy::PtrArg(kv::GetD3D9RenderSystem()->m_pD3D9));
    // Building the object opens no device and asks the adapter nothing.
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_TRUE(kvproxy::NoCallsOf(mark, {Method::D3D9_GetAdapterCount, Method::D3D9_CreateDevice}));
    mark = kvproxy::Here();
    delete rs;
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::D3D9_Release, {0}));
}

} // namespace
