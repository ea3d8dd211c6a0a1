// What the recording DLLs of tools/ share: the system's own copy of the DLL a recorder
// stands in for, the seeded draws of their random faults, and, on a program's side, the
// search for a recorder among the loaded modules (found by an export, since a recorder
// bears the name of the system DLL it loads).
#pragma once

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace kvtools
{

// The system directory's copy of fileName ("d3d9.dll"), or null. Called at a recorder's
// first export rather than in DllMain, where loading another library is not safe.
inline HMODULE LoadSystemDll(const char* fileName)
{
    char path[MAX_PATH];
    const UINT n = GetSystemDirectoryA(path, MAX_PATH);
    const size_t length = std::strlen(fileName);
    if (n == 0 || n + 1 + length + 1 > MAX_PATH)
        return nullptr;
    path[n] = '\\';
    std::memcpy(path + n + 1, fileName, length + 1);
    return LoadLibraryA(path);
}

// An export of the system DLL a recorder passes calls on to. One it lacks (a forwarded
// export has no answer of its own to give) stops the program loudly, naming the recorder.
inline void* SystemExportOrStop(HMODULE dll, const char* name, const char* recorder, const char* fileName)
{
    void* f = dll ? reinterpret_cast<void*>(GetProcAddress(dll, name)) : nullptr;
    if (!f)
    {
        std::fprintf(stderr, "%s: the system's %s has no %s\n", recorder, fileName, name);
        ExitProcess(3);
    }
    return f;
}

// splitmix64: the next draw of a seeded stream, one a call, so that a seed replays a run.
inline uint64_t NextDraw(uint64_t& state)
{
    uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// The first loaded module (of up to 512) that accept takes, or null.
template <class Accept>
HMODULE FindLoadedModule(Accept accept)
{
    using EnumModules = BOOL(WINAPI*)(HANDLE, HMODULE*, DWORD, LPDWORD);
    auto enumModules = reinterpret_cast<EnumModules>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "K32EnumProcessModules")));
    HMODULE modules[512];
    DWORD bytes = 0;
    if (!enumModules || !enumModules(GetCurrentProcess(), modules, sizeof modules, &bytes))
        return nullptr;
    const DWORD count = bytes / sizeof(HMODULE) < 512 ? bytes / sizeof(HMODULE) : 512;
    for (DWORD i = 0; i < count; ++i)
        if (accept(modules[i]))
            return modules[i];
    return nullptr;
}

// The loaded module whose abiExport answers abi: a recorder of this build.
inline HMODULE FindRecorder(const char* abiExport, uint32_t abi)
{
    return FindLoadedModule([&](HMODULE m) {
        auto answer = reinterpret_cast<uint32_t (*)()>(reinterpret_cast<void*>(GetProcAddress(m, abiExport)));
        return answer && answer() == abi;
    });
}

} // namespace kvtools
