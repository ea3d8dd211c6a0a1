#include "KvCrashHandler.h"

#include <cstdint>
#include <cstdio>

namespace
{

void PrintFrame(unsigned index, uintptr_t address)
{
    HMODULE module = nullptr;
    char name[MAX_PATH] = "?";
    if (GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           reinterpret_cast<LPCSTR>(address), &module))
        GetModuleFileNameA(module, name, sizeof(name));
    std::fprintf(stderr, "KV-CRASH: #%u %s+0x%llx\n", index, name,
                 static_cast<unsigned long long>(address - reinterpret_cast<uintptr_t>(module)));
}

// Whether a word at this address can be read: a broken stack pointer must not
// fault inside the report.
bool Readable(uintptr_t address)
{
    MEMORY_BASIC_INFORMATION region;
    const DWORD readable = PAGE_READONLY | PAGE_READWRITE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE;
    return VirtualQuery(reinterpret_cast<const void*>(address), &region, sizeof(region)) &&
           region.State == MEM_COMMIT && (region.Protect & readable) &&
           address + sizeof(DWORD64) <= reinterpret_cast<uintptr_t>(region.BaseAddress) + region.RegionSize;
}

// Walks the faulting thread's frames from the fault itself, by the x86-64 unwind
// tables (only the x86-64 build runs tests), so the report starts where the
// fault was and not in the dispatcher.
void PrintStack(const CONTEXT& fault)
{
    CONTEXT context = fault;
    for (unsigned i = 0; i < 48 && context.Rip; ++i)
    {
        PrintFrame(i, context.Rip);
        DWORD64 imageBase = 0;
        PRUNTIME_FUNCTION function = RtlLookupFunctionEntry(context.Rip, &imageBase, nullptr);
        if (function)
        {
            void* handlerData = nullptr;
            DWORD64 frame = 0;
            RtlVirtualUnwind(UNW_FLAG_NHANDLER, imageBase, context.Rip, function, &context, &handlerData, &frame,
                             nullptr);
        }
        else
        {
            // A leaf function: the return address is on top of the stack.
            if (!Readable(context.Rsp))
                break;
            context.Rip = *reinterpret_cast<const DWORD64*>(context.Rsp);
            context.Rsp += sizeof(DWORD64);
        }
    }
}

// Installed before main, so a fault anywhere in the program is covered.
struct Installer
{
    Installer() { SetUnhandledExceptionFilter(kvtest::CrashFilter); }
} const kInstaller;

} // namespace

namespace kvtest
{

LONG WINAPI CrashFilter(EXCEPTION_POINTERS* info)
{
    // A fault inside the report must not start another one.
    static LONG entered = 0;
    if (InterlockedExchange(&entered, 1))
        TerminateProcess(GetCurrentProcess(), kCrashExitCode);
    std::fflush(stdout);
    const EXCEPTION_RECORD& record = *info->ExceptionRecord;
    std::fprintf(stderr, "KV-CRASH: unhandled exception 0x%08lx at %p in thread %lu", record.ExceptionCode,
                 record.ExceptionAddress, GetCurrentThreadId());
    if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record.NumberParameters >= 2)
        std::fprintf(stderr, ", %s address 0x%llx", record.ExceptionInformation[0] ? "writing" : "reading",
                     static_cast<unsigned long long>(record.ExceptionInformation[1]));
    std::fprintf(stderr, "\n");
    PrintStack(*info->ContextRecord);
    std::fflush(stderr);
    TerminateProcess(GetCurrentProcess(), kCrashExitCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

} // namespace kvtest
