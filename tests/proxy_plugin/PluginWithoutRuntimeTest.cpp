// The render system made through the plug-in's export, with the Direct3D runtime
// refusing or answering through the recording d3d9.dll.
#include "D3D9RenderSystem.h"

#include "engine/Log.h"

#include <gtest/gtest.h>

#include "ProxyExpect.h"

using kvproxy::Method;

namespace
{

TEST(PluginOnProxy, TheObjectKeepsWhatDirect3DCreate9GaveAndInitFailsWithoutIt)
{
    ASSERT_TRUE(kvproxy::Available()) << "this suite must run with the recording d3d9.dll";
    auto create = reinterpret_cast<kv::PFN_CreateRenderSystem>(
        reinterpret_cast<void*>(GetProcAddress(LoadLibraryA("D3D9RenderSystem.dll"), "CreateRenderSystem")));
    ASSERT_NE(nullptr, create);
    for (const bool refused : {false, true})
    {
        SCOPED_TRACE(refused ? "refused" : "answered");
        kvproxy::ResetAll();
        kv::ClearLog();
        if (refused)
            kvproxy::FailDirect3DCreate9(1);
        kvproxy::Mark mark = kvproxy::Here();
        kv::CRenderSystem* rs = create();
        ASSERT_TRUE(rs && rs == kv::GetRenderSystem());
        std::vector<KvProxyCall> creates = kvproxy::CallsSince(mark, Method::Direct3DCreate9);
        ASSERT_EQ(1u, creates.size());
        EXPECT_EQ(32u, creates[0].args[0]);
        EXPECT_EQ(creates[0].out, kvproxy::PtrArg(kv::GetD3D9RenderSystem()->m_pD3D9));
        EXPECT_EQ(refused, creates[0].out == 0);
        // Building the object opens no device, asks the adapter nothing, reports nothing.
        EXPECT_TRUE(kvproxy::NoDeviceCalls(mark) &&
                    kvproxy::NoCallsOf(mark, {Method::D3D9_GetAdapterCount, Method::D3D9_CreateDevice}));
        EXPECT_EQ(0u, kv::GetLogLineCount());
        if (refused)
        {
            // Nothing is asked of a runtime that is not there, nor is the proxy asked again.
            EXPECT_FALSE(rs->Init(GetDesktopWindow(), 640, 480, false, false, 0));
            EXPECT_EQ((std::vector<std::string>{"Cannot Create D3D9", "Failed to BuildDevice"}),
                      kv::GetLogTexts(kv::LOG_ERROR));
            EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::Direct3DCreate9));
            EXPECT_TRUE(kvproxy::NoDeviceCalls(mark) &&
                        kvproxy::NoCallsOf(mark, {Method::D3D9_GetAdapterCount, Method::D3D9_GetDeviceCaps}));
        }
        mark = kvproxy::Here();
        delete rs;
        EXPECT_EQ(nullptr, kv::GetRenderSystem());
        EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::D3D9_Release,
                                        refused ? std::vector<HRESULT>{} : std::vector<HRESULT>{0}));
    }
    kvproxy::ResetAll();
}

} // namespace
