#include "SoakSupport.h"

#include "engine/Log.h"

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace soak
{

unsigned Size(const char* name, unsigned shortValue)
{
    const char* text = std::getenv(name);
    return text && *text ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : shortValue;
}

uint32_t Seed(const char* soakName)
{
    const char* text = std::getenv("KV_SOAK_SEED");
    const uint32_t seed = text && *text ? static_cast<uint32_t>(std::strtoul(text, nullptr, 10)) : 20261123u;
    std::printf("%s: seed %u (KV_SOAK_SEED=%u replays it)\n", soakName, seed, seed);
    std::fflush(stdout);
    return seed;
}

void Bench(const char* figure, double value, const char* unit)
{
    std::printf("BENCH reliability.%s %.15g %s\n", figure, value, unit);
    std::fflush(stdout);
}

Footprint Measure()
{
    // Wine answers neither PrivateUsage nor the handle count (both read 0), so
    // both are counted by hand: the committed private pages of the address
    // space, and the handle values that name an open handle.
    uint64_t privateBytes = 0;
    MEMORY_BASIC_INFORMATION info;
    for (const char* at = nullptr; VirtualQuery(at, &info, sizeof info) == sizeof info;
         at = static_cast<const char*>(info.BaseAddress) + info.RegionSize)
        if (info.State == MEM_COMMIT && info.Type == MEM_PRIVATE)
            privateBytes += info.RegionSize;
    uint32_t handles = 0;
    DWORD flags;
    for (uintptr_t h = 4; h < 0x10000; h += 4)
        handles += GetHandleInformation(reinterpret_cast<HANDLE>(h), &flags) ? 1 : 0;
    // Under Wine the process is a Linux process too, and its driver's memory is
    // seen only there.
    uint64_t anonKb = 0;
    if (FILE* status = std::fopen("Z:\\proc\\self\\status", "r"))
    {
        char line[256];
        while (std::fgets(line, sizeof line, status))
            if (std::strncmp(line, "RssAnon:", 8) == 0)
                anonKb = std::strtoull(line + 8, nullptr, 10);
        std::fclose(status);
    }
    return Footprint{privateBytes / 1024, anonKb, handles};
}

size_t LeakReportLines()
{
    size_t n = 0;
    for (const std::string& line : kv::GetLogTexts(kv::LOG_ERROR))
        n += line.compare(0, 14, "g_nNodeAmount:") == 0;
    return n;
}

Watchdog::Watchdog(const char* what, unsigned seconds) : m_what(what), m_seconds(seconds)
{
    m_thread = std::thread([this] {
        uint64_t seen = m_ticks.load();
        auto last = std::chrono::steady_clock::now();
        while (!m_stop.load())
        {
            Sleep(100);
            const uint64_t now = m_ticks.load();
            if (now != seen)
            {
                seen = now;
                last = std::chrono::steady_clock::now();
            }
            else if (std::chrono::steady_clock::now() - last > std::chrono::seconds(m_seconds))
            {
                std::printf("watchdog: %s made no progress for %u s, ending the run\n", m_what.c_str(), m_seconds);
                std::fflush(stdout);
                TerminateProcess(GetCurrentProcess(), 4);
            }
        }
    });
}

Watchdog::~Watchdog()
{
    m_stop.store(true);
    m_thread.join();
}

} // namespace soak
