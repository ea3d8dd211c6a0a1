// The report a program leaves behind when it ends with KV_D3D9RECORDER_REPORT set:
// how often each call was made and, while recording, the trace. It lets the
// recorder be put in front of any program, with no control code in it.
#include <windows.h>

#include <cinttypes>
#include <cstdio>

#include "ProxyState.h"

namespace
{

// Lines go to the file through a fixed buffer: the process is ending, and its
// heap may be in any state.
class ReportFile
{
public:
    explicit ReportFile(const char* path)
        : m_file(CreateFileA(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr))
    {
    }
    ~ReportFile()
    {
        if (m_file != INVALID_HANDLE_VALUE)
            CloseHandle(m_file);
    }
    bool Open() const { return m_file != INVALID_HANDLE_VALUE; }

    template <class... Args>
    void Line(const char* format, Args... args)
    {
        char text[512];
        const int n = std::snprintf(text, sizeof text, format, args...);
        if (n <= 0)
            return;
        DWORD written = 0;
        WriteFile(m_file, text, static_cast<DWORD>(n < static_cast<int>(sizeof text) ? n : sizeof text - 1), &written,
                  nullptr);
    }

private:
    HANDLE m_file;
};

void WriteReport(const char* path)
{
    ReportFile out(path);
    if (!out.Open())
        return;
    ProxyState* made = ProxyState::IfMade();
    if (!made)
    {
        out.Line("# d3d9recorder report: no call reached the recorder\n");
        return;
    }
    ProxyState& state = *made;
    out.Line("# d3d9recorder report: calls by method\n");
    for (uint32_t m = 0; m < kvproxy::kMethodCount; ++m)
        if (const uint32_t n = state.CallCount(m))
            out.Line("count %s %u\n", kvproxy::MethodName(static_cast<kvproxy::Method>(m)), n);
    const uint32_t size = state.TraceSize();
    out.Line("# trace: %u calls, %u dropped\n", size, state.TraceDropped());
    const KvProxyCall* trace = state.Trace();
    for (uint32_t i = 0; i < size; ++i)
    {
        const KvProxyCall& c = trace[i];
        out.Line("call %u %s result=0x%08" PRIx32 " out=0x%" PRIx64 " flags=%u args=", i,
                 kvproxy::MethodName(static_cast<kvproxy::Method>(c.method)), static_cast<uint32_t>(c.result), c.out,
                 c.flags);
        for (uint32_t a = 0; a < c.argCount; ++a)
            out.Line(a ? ",0x%" PRIx64 : "0x%" PRIx64, c.args[a]);
        out.Line("\n");
    }
}

} // namespace

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_DETACH)
    {
        char path[MAX_PATH];
        const DWORD n = GetEnvironmentVariableA("KV_D3D9RECORDER_REPORT", path, MAX_PATH);
        if (n > 0 && n < MAX_PATH)
            WriteReport(path);
    }
    return TRUE;
}
