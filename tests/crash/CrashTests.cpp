// The crash filter of tests/support is installed before main; with
// KV_CRASH_ON_PURPOSE set this program then faults on purpose.
#include "KvCrashHandler.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace
{

// Out of line, so the report names it.
__attribute__((noinline)) void CrashOnPurpose(volatile int* where)
{
    *where = 1;
}

TEST(CrashHandler, IsTheProcessFilterAndEndsTheProgramOnAFault)
{
    // Asking for the filter replaces it: it goes back at once.
    const LPTOP_LEVEL_EXCEPTION_FILTER installed = SetUnhandledExceptionFilter(nullptr);
    SetUnhandledExceptionFilter(installed);
    EXPECT_EQ(&kvtest::CrashFilter, installed);
    if (std::getenv("KV_CRASH_ON_PURPOSE"))
        CrashOnPurpose(nullptr);
}

} // namespace
