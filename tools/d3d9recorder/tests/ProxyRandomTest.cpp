// Seeded random faults, and the calls on buffers, textures, surfaces and queries
// that the recorder sees once it watches them.
#include "ProxyFixture.h"

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using kvproxy::Method;

namespace
{

// The results of `n` vertex buffer creations.
std::vector<HRESULT> CreateBuffers(IDirect3DDevice9* device, int n)
{
    std::vector<HRESULT> results;
    for (int i = 0; i < n; ++i)
    {
        IDirect3DVertexBuffer9* buffer = reinterpret_cast<IDirect3DVertexBuffer9*>(1);
        results.push_back(device->CreateVertexBuffer(64, 0, 0, D3DPOOL_MANAGED, &buffer, nullptr));
        if (SUCCEEDED(results.back()))
            buffer->Release();
        else
            EXPECT_EQ(nullptr, buffer);
    }
    return results;
}

} // namespace

TEST_F(ProxyFixture, RandomFaultsReplayFromTheirSeedWithDriverFailures)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    std::vector<HRESULT> runs[3];
    const uint32_t seeds[3] = {11, 11, 12};
    for (int r = 0; r < 3; ++r)
    {
        kvproxy::SetRandomFaults(seeds[r], 300000, KV_PROXY_RANDOM_CREATE);
        runs[r] = CreateBuffers(device, 60);
        unsigned failed = 0;
        for (HRESULT hr : runs[r])
        {
            failed += FAILED(hr);
            if (FAILED(hr))
            {
                EXPECT_TRUE(hr == E_OUTOFMEMORY || hr == D3DERR_OUTOFVIDEOMEMORY || hr == D3DERR_INVALIDCALL ||
                            hr == D3DERR_DEVICELOST || hr == D3DERR_DEVICEREMOVED)
                    << std::hex << hr;
            }
        }
        EXPECT_EQ(failed, kvproxy::RandomFaultsInjected(KV_PROXY_RANDOM_CREATE));
        EXPECT_EQ(0u, kvproxy::RandomFaultsInjected(KV_PROXY_RANDOM_LOCK | KV_PROXY_RANDOM_PRESENT));
        EXPECT_GT(failed, 5u);
        EXPECT_LT(failed, 40u);
    }
    EXPECT_EQ(runs[0], runs[1]);
    EXPECT_NE(runs[0], runs[2]);
    // Other classes stay untouched, and a rate of 0 ends the faults.
    EXPECT_EQ(D3D_OK, device->Present(nullptr, nullptr, nullptr, nullptr));
    kvproxy::SetRandomFaults(11, 0);
    EXPECT_EQ(std::vector<HRESULT>(20, D3D_OK), CreateBuffers(device, 20));
}

TEST_F(ProxyFixture, WatchedLocksAndQueriesAreTracedAndTakeFaults)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    kvproxy::WatchResources(true);
    IDirect3DVertexBuffer9* vb = nullptr;
    IDirect3DTexture9* texture = nullptr;
    IDirect3DQuery9* query = nullptr;
    ASSERT_EQ(D3D_OK, device->CreateVertexBuffer(64, 0, 0, D3DPOOL_MANAGED, &vb, nullptr));
    ASSERT_EQ(D3D_OK, device->CreateTexture(4, 4, 1, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED, &texture, nullptr));
    ASSERT_EQ(D3D_OK, device->CreateQuery(D3DQUERYTYPE_EVENT, &query));
    IDirect3DSurface9* surface = nullptr;
    ASSERT_EQ(D3D_OK, texture->GetSurfaceLevel(0, &surface));

    kvproxy::Mark mark = kvproxy::Here();
    void* data = nullptr;
    D3DLOCKED_RECT locked = {};
    BOOL done = FALSE;
    EXPECT_EQ(D3D_OK, vb->Lock(0, 16, &data, 0));
    EXPECT_EQ(D3D_OK, vb->Unlock());
    EXPECT_EQ(D3D_OK, texture->LockRect(0, &locked, nullptr, 0));
    EXPECT_EQ(D3D_OK, texture->UnlockRect(0));
    EXPECT_EQ(D3D_OK, surface->LockRect(&locked, nullptr, D3DLOCK_READONLY));
    EXPECT_EQ(D3D_OK, surface->UnlockRect());
    EXPECT_EQ(D3D_OK, query->Issue(D3DISSUE_END));
    query->GetData(&done, sizeof done, D3DGETDATA_FLUSH);
    // Wine's texture locks its level's surface through the same table: those calls show too.
    EXPECT_TRUE(
        kvproxy::CalledInOrder(mark, {Method::VertexBuffer_Lock, Method::VertexBuffer_Unlock, Method::Texture_LockRect,
                                      Method::Texture_UnlockRect, Method::Surface_LockRect, Method::Surface_UnlockRect,
                                      Method::Query_Issue, Method::Query_GetData}));
    EXPECT_EQ((std::vector<uint64_t>{kvproxy::PtrArg(vb), 0, 16, 0}),
              std::vector<uint64_t>(kvproxy::TraceAt(mark.index)->args, kvproxy::TraceAt(mark.index)->args + 4));

    // A rule, then random faults of the lock class alone: every lock refused, no query.
    kvproxy::FailMethod(Method::VertexBuffer_Lock, E_OUTOFMEMORY, 1);
    EXPECT_EQ(E_OUTOFMEMORY, vb->Lock(0, 16, &data, 0));
    EXPECT_EQ(nullptr, data);
    EXPECT_EQ(D3D_OK, vb->Lock(0, 16, &data, 0));
    EXPECT_EQ(D3D_OK, vb->Unlock());
    kvproxy::SetRandomFaults(5, 1000000, KV_PROXY_RANDOM_LOCK);
    locked.pBits = &done;
    EXPECT_TRUE(FAILED(texture->LockRect(0, &locked, nullptr, 0)));
    EXPECT_EQ(nullptr, locked.pBits);
    EXPECT_TRUE(FAILED(surface->LockRect(&locked, nullptr, 0)));
    EXPECT_EQ(D3D_OK, query->Issue(D3DISSUE_END));
    EXPECT_LE(2u, kvproxy::RandomFaultsInjected(KV_PROXY_RANDOM_LOCK));
    EXPECT_EQ(0u, kvproxy::RandomFaultsInjected(KV_PROXY_RANDOM_QUERY));

    // Not watching: the calls pass unseen and untouched.
    kvproxy::SetRandomFaults(5, 0);
    kvproxy::WatchResources(false);
    mark = kvproxy::Here();
    EXPECT_EQ(D3D_OK, vb->Lock(0, 16, &data, 0));
    EXPECT_EQ(D3D_OK, vb->Unlock());
    EXPECT_EQ(0u, kvproxy::CallsSince(mark).size());
    surface->Release();
    query->Release();
    texture->Release();
    vb->Release();
}

TEST(ProxyRandom, TheEnvironmentPutsAProgramWithoutControlCodeUnderFaults)
{
    char folder[MAX_PATH], self[MAX_PATH];
    ASSERT_GT(GetTempPathA(MAX_PATH, folder), 0u);
    const DWORD n = GetModuleFileNameA(nullptr, self, MAX_PATH);
    const std::string report = std::string(folder) + "kv_recorder_faults.txt";
    std::string probe = std::string(self, n);
    probe = "\"" + probe.substr(0, probe.find_last_of("\\/") + 1) + "recorder_report_probe.exe\" buffers";
    int codes[2];
    for (int& code : codes)
    {
        DeleteFileA(report.c_str());
        SetEnvironmentVariableA("KV_D3D9RECORDER_REPORT", report.c_str());
        SetEnvironmentVariableA("KV_D3D9RECORDER_FAULTS", "2:400000:1");
        STARTUPINFOA si = {};
        si.cb = sizeof si;
        PROCESS_INFORMATION pi = {};
        std::string command = probe;
        ASSERT_TRUE(CreateProcessA(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi));
        SetEnvironmentVariableA("KV_D3D9RECORDER_REPORT", nullptr);
        SetEnvironmentVariableA("KV_D3D9RECORDER_FAULTS", nullptr);
        WaitForSingleObject(pi.hProcess, 60000);
        DWORD exit = 0;
        GetExitCodeProcess(pi.hProcess, &exit);
        CloseHandle(pi.hThread);
        CloseHandle(pi.hProcess);
        code = static_cast<int>(exit);
    }
    EXPECT_EQ(codes[0], codes[1]) << "the same seed gives the same faults";
    std::stringstream text;
    text << std::ifstream(report).rdbuf();
    const std::string s = text.str();
    size_t faulted = 0;
    for (size_t at = s.find(" CreateVertexBuffer result="); at != std::string::npos;
         at = s.find(" CreateVertexBuffer result=", at + 1))
        faulted += s.compare(s.find("flags=", at), 7, "flags=1") == 0;
    ASSERT_GT(codes[0], 100) << s;
    EXPECT_EQ(static_cast<size_t>(codes[0] - 100), faulted) << s;
    EXPECT_GT(faulted, 0u);
    DeleteFileA(report.c_str());
}
