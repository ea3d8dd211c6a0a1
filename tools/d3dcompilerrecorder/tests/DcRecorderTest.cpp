// The recording d3dcompiler_43.dll: D3DCompile recorded and failed on request or
// at random from a seed; the other exports reach the system's compiler.
#include <d3dcompiler.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "DcRecorder.h"

namespace
{

const char kSource[] = "float4 main(float4 p : POSITION) : POSITION { return p * 2; }";

HRESULT Compile(ID3DBlob** code)
{
    ID3DBlob* errors = nullptr;
    *code = reinterpret_cast<ID3DBlob*>(1);
    const HRESULT hr =
        D3DCompile(kSource, sizeof kSource - 1, "probe.fx", nullptr, nullptr, "main", "vs_2_0", 0, 0, code, &errors);
    if (errors)
        errors->Release();
    return hr;
}

std::vector<HRESULT> Results(int n)
{
    std::vector<HRESULT> out;
    for (int i = 0; i < n; ++i)
    {
        ID3DBlob* code = nullptr;
        out.push_back(Compile(&code));
        if (SUCCEEDED(out.back()))
            code->Release();
    }
    return out;
}

} // namespace

TEST(DcRecorder, CompilesAreRecordedAndFailOnRequestOrFromASeed)
{
    ASSERT_TRUE(kvdc::Available()) << "this suite must run with the recording d3dcompiler_43.dll";
    kvdc::Reset();
    ID3DBlob* code = nullptr;
    ASSERT_EQ(S_OK, Compile(&code));
    ASSERT_NE(nullptr, code);
    EXPECT_GT(code->GetBufferSize(), 16u);
    code->Release();

    kvdc::Fail(E_OUTOFMEMORY, 1);
    EXPECT_EQ(E_OUTOFMEMORY, Compile(&code));
    EXPECT_EQ(nullptr, code);
    const std::vector<KvDcCall> calls = kvdc::Calls();
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(std::string("main"), calls[0].entry);
    EXPECT_EQ(std::string("vs_2_0"), calls[0].target);
    EXPECT_EQ(std::string("probe.fx"), calls[0].sourceName);
    EXPECT_EQ(sizeof kSource - 1, calls[0].sourceSize);
    EXPECT_EQ((std::vector<int>{0, 1}),
              (std::vector<int>{static_cast<int>(calls[0].faulted), static_cast<int>(calls[1].faulted)}));
    EXPECT_EQ(E_OUTOFMEMORY, calls[1].result);

    std::vector<HRESULT> runs[2];
    for (std::vector<HRESULT>& run : runs)
    {
        kvdc::Reset();
        kvdc::SetRandomFaults(9, 400000);
        run = Results(30);
        unsigned failed = 0;
        for (HRESULT hr : run)
            failed += FAILED(hr);
        EXPECT_EQ(failed, kvdc::FaultsInjected());
        EXPECT_GT(failed, 3u);
        EXPECT_LT(failed, 25u);
    }
    EXPECT_EQ(runs[0], runs[1]) << "the same seed gives the same failures";
    kvdc::Reset();
    EXPECT_EQ(std::vector<HRESULT>(5, S_OK), Results(5));
}

TEST(DcRecorder, ExportsPassedOnReachTheSystemCompiler)
{
    ID3DBlob* blob = nullptr;
    ASSERT_EQ(S_OK, D3DCreateBlob(12, &blob));
    EXPECT_EQ(12u, blob->GetBufferSize());
    blob->Release();
    ID3DBlob* code = nullptr;
    ASSERT_EQ(S_OK, Compile(&code));
    ID3DBlob* text = nullptr;
    ASSERT_EQ(S_OK, D3DDisassemble(code->GetBufferPointer(), code->GetBufferSize(), 0, nullptr, &text));
    EXPECT_NE(std::string::npos,
              std::string(static_cast<const char*>(text->GetBufferPointer()), text->GetBufferSize()).find("vs_2_0"));
    text->Release();
    code->Release();
}
