// Every Windows test program carries this filter (kv_test links it): an
// unhandled fault prints its code, address and the stack as module+offset lines
// ("KV-CRASH: #<n> <module>+0x<offset>", which wine-run.sh turns into function
// and line) and ends the program at once with kCrashExitCode. Without it Wine
// starts its debugger and the program never returns.
#pragma once

#include <windows.h>

namespace kvtest
{

const UINT kCrashExitCode = 3;

LONG WINAPI CrashFilter(EXCEPTION_POINTERS* info);

} // namespace kvtest
