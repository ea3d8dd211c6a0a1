#include "ProgramFixture.h"

#include "engine/ArchiveManager.h"
#include "engine/Engine.h"
#include "engine/GpuProgramManager.h"

#include <filesystem>
#include <fstream>
#include <sstream>

using namespace kv;
namespace fs = std::filesystem;

void ProgramTest::SetUp()
{
    EngineInit();
    static int serial = 0;
    root = (fs::temp_directory_path() /
            ("kv_programs_" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++serial)))
               .generic_string();
    fs::remove_all(root);
    fs::create_directories(root + "/shader");
    for (const char* file : {"lit.fx", "lit.ini"})
        fs::copy_file(std::string(KV_SAMPLE_SHADERS) + "/" + file, root + "/shader/" + file);
    GetGpuProgramManager()->SetDataRoot(root);
    GetArchiveMananger()->SetCacheRoot(root + "/cache");
    g_bEditorMode = g_bDisassembleShader = false;
    g_eGpuProgramInitRuntimeMacro = 0;
    KvDeviceTest::SetUp();
}

void ProgramTest::TearDown()
{
    KvDeviceTest::TearDown();
    GetGpuProgramManager()->SetDataRoot(".");
    GetArchiveMananger()->SetCacheRoot("cache");
    std::error_code ignored;
    fs::remove_all(root, ignored);
}

bool ProgramTest::WaitReady(CD3D9HLSLProgram* program)
{
    // Up to 40 s; a failed variant ends the wait at once.
    for (int wait = 0;
         wait < 20000 && !program->SelectVariant() && program->GetCurrentVariant()->State() != VARIANT_FAILED; ++wait)
        Sleep(2);
    return program->GetCurrentVariant()->State() == VARIANT_READY;
}

void ProgramTest::Write(const std::string& relative, const std::string& text)
{
    std::ofstream(root + "/" + relative, std::ios::binary) << text;
}

std::string ProgramTest::Read(const std::string& relative)
{
    std::ostringstream text;
    text << std::ifstream(root + "/" + relative, std::ios::binary).rdbuf();
    return text.str();
}

std::vector<std::string> ProgramTest::Entries()
{
    std::vector<std::string> names;
    const fs::path area = root + "/cache/shadercache";
    if (fs::exists(area))
        for (const auto& entry : fs::recursive_directory_iterator(area))
            if (entry.is_regular_file())
                names.push_back(fs::relative(entry.path(), area).generic_string());
    std::sort(names.begin(), names.end());
    return names;
}

void LitTest::SetUp()
{
    ProgramTest::SetUp();
    if (!HasFatalFailure())
    {
        lit = Make("lit");
        ASSERT_TRUE(WaitReady(lit.get()));
    }
}
