#include "ProgramFixture.h"

#include "engine/ArchiveManager.h"
#include "engine/Engine.h"
#include "engine/GpuProgramCompileThread.h"
#include "engine/GpuProgramManager.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

using namespace kv;

void ProgramTest::SetUp()
{
    EngineInit();
    char temp[MAX_PATH];
    ASSERT_NE(0u, GetTempPathA(MAX_PATH, temp));
    static int serial = 0;
    root = std::string(temp) + "kv_programs_" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++serial);
    std::filesystem::remove_all(root);
    std::filesystem::create_directories(root + "/shader");
    for (const char* file : {"lit.fx", "lit.ini"})
        ASSERT_TRUE(
            CopyFileA((std::string(KV_SAMPLE_SHADERS) + "/" + file).c_str(), (root + "/shader/" + file).c_str(), FALSE))
            << file;
    GetGpuProgramManager()->SetDataRoot(root);
    GetArchiveMananger()->SetCacheRoot(root + "/cache");
    g_bEditorMode = false;
    g_bDisassembleShader = false;
    g_eGpuProgramInitRuntimeMacro = 0;
    KvDeviceTest::SetUp();
}

void ProgramTest::TearDown()
{
    KvDeviceTest::TearDown();
    GetGpuProgramManager()->SetDataRoot(".");
    GetArchiveMananger()->SetCacheRoot("cache");
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
}

ref_ptr<CD3D9HLSLProgram> ProgramTest::Make(const std::string& name)
{
    ref_ptr<CGpuProgram> program = rs->CreateGpuProgram(name.c_str());
    return ref_ptr<CD3D9HLSLProgram>(static_cast<CD3D9HLSLProgram*>(program.get()));
}

bool ProgramTest::WaitReady(CD3D9HLSLProgram* program)
{
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!program->SelectVariant())
    {
        if (program->GetCurrentVariant()->State() == VARIANT_FAILED)
            return false;
        if (std::chrono::steady_clock::now() > until)
        {
            ADD_FAILURE() << "the variant did not finish";
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

void ProgramTest::Keys(uint64_t runtime, uint64_t lighting)
{
    rs->m_nRuntimeMacro = runtime;
    rs->m_nLightingMacro = lighting;
}

void ProgramTest::Write(const std::string& relative, const std::string& text)
{
    std::filesystem::create_directories(std::filesystem::path(root + "/" + relative).parent_path());
    std::ofstream(root + "/" + relative, std::ios::binary) << text;
}

std::string ProgramTest::Read(const std::string& relative)
{
    std::ostringstream text;
    text << std::ifstream(root + "/" + relative, std::ios::binary).rdbuf();
    return text.str();
}

unsigned ProgramTest::Compiles() const
{
    return g_pCompileThread->GetCompileCount();
}

unsigned ProgramTest::Hits() const
{
    return g_pCompileThread->GetCacheHitCount();
}

std::vector<std::string> ProgramTest::Entries()
{
    std::vector<std::string> names;
    const std::string area = root + "/cache/shadercache";
    if (std::filesystem::exists(area))
        for (const auto& entry : std::filesystem::recursive_directory_iterator(area))
            if (entry.is_regular_file())
                names.push_back(std::filesystem::relative(entry.path(), area).generic_string());
    std::sort(names.begin(), names.end());
    return names;
}
