// A started render system whose engine data and shader cache lie in a fresh temporary folder, with the samples' lit
// shader copied in; tests add their own sources and descriptions beside it.
#pragma once

#include "D3D9HLSLProgram.h"
#include "KvDeviceTest.h"

#include "engine/GpuProgramCompileThread.h"

#include <string>
#include <vector>

struct ProgramTest : KvDeviceTest
{
    void SetUp() override;
    void TearDown() override;

    ref_ptr<kv::CD3D9HLSLProgram> Make(const std::string& name)
    {
        return ref_ptr<kv::CD3D9HLSLProgram>(
            static_cast<kv::CD3D9HLSLProgram*>(rs->CreateGpuProgram(name.c_str()).get()));
    }
    // Selects the current keys until the variant is ready (true) or failed.
    bool WaitReady(kv::CD3D9HLSLProgram* program);
    void Keys(uint64_t runtime, uint64_t lighting)
    {
        rs->m_nRuntimeMacro = runtime;
        rs->m_nLightingMacro = lighting;
    }
    // A file of the data folder ("shader/x.fx"), written or read whole.
    void Write(const std::string& relative, const std::string& text);
    std::string Read(const std::string& relative);
    unsigned Compiles() const { return kv::g_pCompileThread->GetCompileCount(); }
    // The cache's entry files, as "c/lit_<digest>.bin".
    std::vector<std::string> Entries();

    std::string root; // the data folder; the cache area is root + "/cache"
};

// The same with the lit program loaded and its first variant (no switches, no lights) ready.
struct LitTest : ProgramTest
{
    void SetUp() override;

    ref_ptr<kv::CD3D9HLSLProgram> lit;
};
