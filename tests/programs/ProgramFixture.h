// A started render system with the engine's shader data and cache in a fresh
// temporary folder: the samples' lit shader is copied in, and a test adds its
// own sources and descriptions beside it.
#pragma once

#include "D3D9HLSLProgram.h"
#include "KvDeviceTest.h"

#include <string>
#include <vector>

// The version token a device shader was made from (0xFFFE0300 for vs_3_0).
template <typename Shader>
DWORD ShaderVersion(Shader* shader)
{
    UINT size = 0;
    if (!shader || FAILED(shader->GetFunction(nullptr, &size)) || size < sizeof(DWORD))
        return 0;
    std::vector<DWORD> code(size / sizeof(DWORD) + 1);
    return SUCCEEDED(shader->GetFunction(code.data(), &size)) ? code[0] : 0;
}

class ProgramTest : public KvDeviceTest
{
protected:
    void SetUp() override;
    void TearDown() override;

    // A program through the render system's factory, or null.
    ref_ptr<kv::CD3D9HLSLProgram> Make(const std::string& name);
    // Selects the current keys until the variant is ready (true) or failed.
    bool WaitReady(kv::CD3D9HLSLProgram* program);
    // The render system's runtime and lighting words.
    void Keys(uint64_t runtime, uint64_t lighting);
    // A file of the data folder ("shader/x.fx") written whole, or read whole.
    void Write(const std::string& relative, const std::string& text);
    std::string Read(const std::string& relative);
    // What the compile thread made of the records it took.
    unsigned Compiles() const;
    unsigned Hits() const;
    // The cache entries on disk, as the cache names their files.
    std::vector<std::string> Entries();

    std::string root; // data folder; the cache area is root + "/cache"
};
