// The report file: any program started in front of the recorder with
// KV_D3D9RECORDER_REPORT set leaves its counts and trace when it ends.
#include <gtest/gtest.h>
#include <windows.h>

#include <fstream>
#include <sstream>
#include <string>

namespace
{

std::string ProgramFolder()
{
    char path[MAX_PATH];
    const DWORD n = GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string s(path, n);
    return s.substr(0, s.find_last_of("\\/") + 1);
}

// Runs the probe with the report variable set; its exit code, or -1 when it could not start.
int RunProbe(const std::string& report)
{
    SetEnvironmentVariableA("KV_D3D9RECORDER_REPORT", report.c_str());
    std::string command = "\"" + ProgramFolder() + "recorder_report_probe.exe\"";
    STARTUPINFOA si = {};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi = {};
    const BOOL started = CreateProcessA(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi);
    SetEnvironmentVariableA("KV_D3D9RECORDER_REPORT", nullptr);
    if (!started)
        return -1;
    WaitForSingleObject(pi.hProcess, 60000);
    DWORD code = 0;
    GetExitCodeProcess(pi.hProcess, &code);
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
    return static_cast<int>(code);
}

} // namespace

TEST(ProxyReport, AProgramWithoutControlCodeLeavesItsCountsAndTrace)
{
    char folder[MAX_PATH];
    ASSERT_GT(GetTempPathA(MAX_PATH, folder), 0u);
    const std::string report = std::string(folder) + "kv_recorder_report.txt";
    DeleteFileA(report.c_str());

    ASSERT_EQ(0, RunProbe(report));
    std::ifstream in(report);
    ASSERT_TRUE(in) << "no report at " << report;
    std::stringstream text;
    text << in.rdbuf();
    const std::string s = text.str();
    for (const char* line : {"count Direct3DCreate9 1\n", "count D3D9_GetAdapterCount 1\n", "count D3D9_Release 1\n",
                             "# trace: 3 calls, 0 dropped\n", "call 0 Direct3DCreate9 result=0x00000000 out=0x"})
        EXPECT_NE(std::string::npos, s.find(line)) << line << " missing from:\n" << s;
    // The adapter count is the call's result; Wine reports one adapter.
    EXPECT_NE(std::string::npos, s.find("call 1 D3D9_GetAdapterCount result=0x00000001 out=0x0 flags=0 args=\n")) << s;
    DeleteFileA(report.c_str());
}
