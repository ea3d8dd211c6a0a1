// What the soak programs share: their sizes and seed from the environment (short
// by default, so that the same program is the quick check of ./run test and the
// long run of ./run soak), the BENCH lines, the process's memory and handles, and
// a watchdog that ends a run which stops making progress.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

namespace soak
{

// The number in the environment variable `name`, else `shortValue`.
unsigned Size(const char* name, unsigned shortValue);
// KV_SOAK_SEED, else a fixed seed; printed once per soak as "<soak>: seed <n>".
uint32_t Seed(const char* soakName);
// "BENCH reliability.<figure> <value> <unit>".
void Bench(const char* figure, double value, const char* unit);

struct Footprint
{
    uint64_t privateKb; // committed private pages of the Windows address space
    uint64_t anonKb;    // the whole process's anonymous memory, Mesa's too (Linux's RssAnon; 0 elsewhere)
    uint32_t handles;
};
Footprint Measure();

// Lines of the render system's leak report in the log so far.
size_t LeakReportLines();

// Ends the process with a message when Tick has not been called for `seconds`.
class Watchdog
{
public:
    Watchdog(const char* what, unsigned seconds);
    ~Watchdog();
    void Tick() { m_ticks.fetch_add(1, std::memory_order_relaxed); }

private:
    std::string m_what;
    unsigned m_seconds;
    std::atomic<uint64_t> m_ticks{0};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace soak
