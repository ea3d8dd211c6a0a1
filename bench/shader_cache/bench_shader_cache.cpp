// What the shader cache saves: every variant of the samples' lit shader (all
// 32 combinations of one to four lights, fog, vertex colour and instancing),
// asked for at once as a scene would, first from an empty cache and then, in
// a new process, from the cache the first run filled. Each run is a child
// process of this one and reports:
//   wall time   from the first request until every variant is ready (the
//               program is loaded before, its description read);
//   main thread the time spent inside the program's calls that queue a new
//               variant or finish one (polls that find it still compiling are
//               the engine's choice and left out), per variant;
//   compiles    what the compile thread compiled, and what it read from the cache.
#include "../Bench.h"
#include "D3D9HLSLProgram.h"
#include "D3D9RenderSystem.h"

#include "engine/ArchiveManager.h"
#include "engine/Engine.h"
#include "engine/Globals.h"
#include "engine/GpuProgramCompileThread.h"
#include "engine/GpuProgramManager.h"
#include "engine/Log.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace
{

using namespace kv;
using Clock = std::chrono::steady_clock;

const unsigned kVariants = 32;
const unsigned kPairs = 5;

double Microseconds(Clock::duration d)
{
    return std::chrono::duration<double, std::micro>(d).count();
}

// The keys of variant i: runtime bits 0 to 2 (fog, vertex colour, instancing)
// and one to four lights.
void SetKeys(CRenderSystem* rs, unsigned i)
{
    rs->m_nRuntimeMacro = i & 7;
    rs->m_nLightingMacro = 1 + i / 8;
}

// One run in this process; prints "RUN <wall ms> <main us per variant> <compiles> <hits> <failures>".
int Run(const char* cacheRoot)
{
    SetLogEcho(false);
    EngineInit();
    GetGpuProgramManager()->SetDataRoot(KV_SAMPLES_DIR);
    GetArchiveMananger()->SetCacheRoot(cacheRoot);
    kvbench::Host host;
    if (!kvbench::StartRenderSystem("bench_shader_cache", host))
        return 1;
    CRenderSystem* rs = host.rs;

    // The program is loaded first, and the unlit variant its Load asks for is
    // finished before the clock starts: reading the description is no
    // business of the cache.
    ref_ptr<CGpuProgram> program = rs->CreateGpuProgram("lit");
    CD3D9HLSLProgram* lit = static_cast<CD3D9HLSLProgram*>(program.get());
    const DWORD loadStart = GetTickCount();
    while (lit && !lit->SelectVariant() && GetTickCount() - loadStart < 20000)
        Sleep(1);
    if (!lit || !lit->SelectVariant())
    {
        std::printf("bench_shader_cache: the lit program could not be made\n");
        return 1;
    }
    const unsigned compilesBefore = g_pCompileThread->GetCompileCount();
    const unsigned hitsBefore = g_pCompileThread->GetCacheHitCount();

    Clock::duration mainThread{};
    const Clock::time_point start = Clock::now();
    for (unsigned i = 0; i < kVariants; ++i)
    {
        SetKeys(rs, i);
        lit->SelectVariant();
    }
    mainThread += Clock::now() - start;

    std::vector<bool> ready(kVariants, false);
    unsigned left = kVariants, failed = 0;
    while (left > 0)
    {
        for (unsigned i = 0; i < kVariants; ++i)
        {
            if (ready[i])
                continue;
            SetKeys(rs, i);
            const Clock::time_point call = Clock::now();
            lit->SelectVariant();
            const Clock::duration spent = Clock::now() - call;
            const int32_t state = lit->GetCurrentVariant()->State();
            if (state == VARIANT_READY || state == VARIANT_FAILED)
            {
                mainThread += spent;
                ready[i] = true;
                --left;
                failed += state == VARIANT_FAILED;
            }
        }
        if (left > 0)
            Sleep(1);
    }
    const double wall = Microseconds(Clock::now() - start) / 1000.0;
    std::printf("RUN %.3f %.3f %u %u %u\n", wall, Microseconds(mainThread) / kVariants,
                g_pCompileThread->GetCompileCount() - compilesBefore, g_pCompileThread->GetCacheHitCount() - hitsBefore,
                failed);

    program = nullptr;
    kvbench::StopRenderSystem(host);
    return failed == 0 ? 0 : 1;
}

struct RunResult
{
    double wallMs = 0, mainUs = 0;
    unsigned compiles = 0, hits = 0, failures = 0;
    bool ok = false;
};

// This program again, as a child running one pass; its report read from its output.
RunResult Spawn(const std::string& cacheRoot)
{
    RunResult result;
    char exe[MAX_PATH];
    if (GetModuleFileNameA(nullptr, exe, MAX_PATH) == 0)
        return result;
    SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
    HANDLE readEnd = nullptr, writeEnd = nullptr;
    if (!CreatePipe(&readEnd, &writeEnd, &inherit, 0))
        return result;
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writeEnd;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION process = {};
    std::string command = "\"" + std::string(exe) + "\" --run \"" + cacheRoot + "\"";
    std::vector<char> line(command.begin(), command.end());
    line.push_back('\0');
    const BOOL started =
        CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
    CloseHandle(writeEnd);
    std::string output;
    char buffer[512];
    DWORD n = 0;
    while (started && ReadFile(readEnd, buffer, sizeof(buffer), &n, nullptr) && n > 0)
        output.append(buffer, n);
    CloseHandle(readEnd);
    if (!started)
        return result;
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 1;
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    const std::string::size_type at = output.find("RUN ");
    result.ok = code == 0 && at != std::string::npos &&
                std::sscanf(output.c_str() + at, "RUN %lf %lf %u %u %u", &result.wallMs, &result.mainUs,
                            &result.compiles, &result.hits, &result.failures) == 5;
    if (!result.ok)
        std::printf("bench_shader_cache: a run failed (exit %lu): %s\n", static_cast<unsigned long>(code),
                    output.c_str());
    return result;
}

void RemoveFolder(const std::string& folder)
{
    // A double NUL ends the list of one folder.
    std::vector<char> from(folder.begin(), folder.end());
    from.push_back('\0');
    from.push_back('\0');
    SHFILEOPSTRUCTA op = {};
    op.wFunc = FO_DELETE;
    op.pFrom = from.data();
    op.fFlags = FOF_NO_UI;
    SHFileOperationA(&op);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "--run") == 0)
        return Run(argv[2]);

    char temp[MAX_PATH];
    if (GetTempPathA(MAX_PATH, temp) == 0)
        return 1;
    // Each pair a cold run into an empty cache and a warm run from it; the
    // medians of the pairs are reported, the machine's other work being what it is.
    const std::string cache = std::string(temp) + "kv_bench_shader_cache_" + std::to_string(GetCurrentProcessId());
    std::vector<double> cold, warm, coldMain, warmMain;
    RunResult first, second;
    for (unsigned pair = 0; pair < kPairs; ++pair)
    {
        RemoveFolder(cache);
        first = Spawn(cache);
        second = Spawn(cache);
        RemoveFolder(cache);
        if (!first.ok || !second.ok)
            return 1;
        cold.push_back(first.wallMs);
        warm.push_back(second.wallMs);
        coldMain.push_back(first.mainUs);
        warmMain.push_back(second.mainUs);
    }
    std::printf("bench_shader_cache: %u variants, %u pairs of runs; the last cold run %u compiled, %u from the cache; "
                "the last warm run %u compiled, %u from the cache\n",
                kVariants, kPairs, first.compiles, first.hits, second.compiles, second.hits);
    std::printf("BENCH shader_cache.cold_ms %.1f ms\n", kvbench::Median(cold));
    std::printf("BENCH shader_cache.warm_ms %.1f ms\n", kvbench::Median(warm));
    std::printf("BENCH shader_cache.cold_vs_warm %.1f x\n", kvbench::Median(cold) / kvbench::Median(warm));
    std::printf("BENCH shader_cache.cold_compiles %u compiles\n", first.compiles);
    std::printf("BENCH shader_cache.warm_compiles %u compiles\n", second.compiles);
    std::printf("BENCH shader_cache.main_thread_us_per_variant %.1f us\n", kvbench::Median(coldMain));
    std::printf("BENCH shader_cache.main_thread_us_per_variant_warm %.1f us\n", kvbench::Median(warmMain));
    return 0;
}
