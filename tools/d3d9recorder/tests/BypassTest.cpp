// A suite run without the proxy's override: Wine's own d3d9 is loaded even though
// the proxy's d3d9.dll lies beside the program, and it draws the same scene.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProxyControl.h"
#include "TriangleScene.h"

namespace
{

std::string ModulePath(HMODULE m)
{
    char path[MAX_PATH];
    DWORD n = GetModuleFileNameA(m, path, MAX_PATH);
    return std::string(path, n);
}

std::string Folder(const std::string& path)
{
    return path.substr(0, path.find_last_of("\\/") + 1);
}

} // namespace

TEST(ProxyBypass, WineOwnD3D9IsLoadedAndTheControlApiIsAbsent)
{
    const std::string exeFolder = Folder(ModulePath(GetModuleHandleA(nullptr)));
    const DWORD attributes = GetFileAttributesA((exeFolder + "d3d9.dll").c_str());
    ASSERT_NE(attributes, INVALID_FILE_ATTRIBUTES) << "the proxy DLL should lie beside this program";

    IDirect3D9* d3d = Direct3DCreate9(D3D_SDK_VERSION);
    ASSERT_NE(d3d, nullptr);
    // Wine names its builtin after the file it stands in for, so the path proves nothing:
    // the exports do. Neither the module behind our import nor any other has the control API.
    // The object's methods live in a d3d9 without the control API.
    HMODULE owner = nullptr;
    ASSERT_TRUE(
        GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           *reinterpret_cast<LPCSTR*>(d3d), &owner));
    EXPECT_EQ(GetProcAddress(owner, "KvProxy_Abi"), nullptr);
    EXPECT_NE(GetProcAddress(owner, "Direct3DCreate9"), nullptr);
    EXPECT_EQ(kvproxy::ProxyModule(), nullptr);
    EXPECT_FALSE(kvproxy::Available());
    d3d->Release();
}

TEST(ProxyBypass, TheRealD3D9DrawsTheKnownPixels)
{
    IDirect3D9* d3d = Direct3DCreate9(D3D_SDK_VERSION);
    ASSERT_NE(d3d, nullptr);
    std::vector<uint32_t> pixels;
    std::string error;
    const bool drawn = scene::Draw(d3d, &pixels, &error);
    d3d->Release();
    ASSERT_TRUE(drawn) << error;
    EXPECT_EQ(scene::KnownPixelMismatches(pixels), "");
}
