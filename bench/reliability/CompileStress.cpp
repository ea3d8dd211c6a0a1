// The compile-thread stress: programs and their variants made, selected and
// dropped while the compile thread works and the shader cache's entries are
// damaged underneath it. A watchdog ends a run that hangs; every variant of the
// programs that live to the end must end ready or failed. ./run soak runs it under
// Wine's checking heap (WINEDEBUG=warn+heap).
#include "ProgramFixture.h"
#include "SoakSupport.h"

#include "engine/ShaderAsyncInfo.h"

#include <filesystem>
#include <random>
#include <thread>

using namespace kv;
namespace fs = std::filesystem;

namespace
{

class CompileStress : public ProgramTest
{
};

TEST_F(CompileStress, VariantsEndReadyOrFailedWhileTheCacheIsDamaged)
{
    const unsigned programs = soak::Size("KV_SOAK_COMPILE_PROGRAMS", 24);
    const uint32_t seed = soak::Seed("compile stress");
    std::mt19937 random(seed);
    // Sixteen texts, so that most programs share cache entries with others.
    const std::string lit = Read("shader/lit.fx"), ini = Read("shader/lit.ini");
    for (unsigned i = 0; i < programs; ++i)
    {
        Write("shader/p" + std::to_string(i) + ".fx", lit + "\n// text " + std::to_string(i % 16) + "\n");
        Write("shader/p" + std::to_string(i) + ".ini", ini);
    }

    soak::Watchdog watchdog("the compile stress", soak::Size("KV_SOAK_WATCHDOG_SECONDS", 120));
    std::atomic<bool> stop{false};
    std::atomic<unsigned> damaged{0};
    // Entries cut short or overwritten while the compile thread reads and writes them.
    std::thread damage([&] {
        std::mt19937 r(seed + 1);
        const fs::path area = root + "/cache/shadercache";
        while (!stop.load())
        {
            Sleep(3);
            std::error_code ec;
            std::vector<fs::path> files;
            for (fs::recursive_directory_iterator it(area, ec), end; !ec && it != end; it.increment(ec))
                if (it->is_regular_file(ec))
                    files.push_back(it->path());
            if (files.empty())
                continue;
            const fs::path victim = files[r() % files.size()];
            const auto size = fs::file_size(victim, ec);
            if (ec || size == 0)
                continue;
            if (r() % 2)
                fs::resize_file(victim, r() % size, ec);
            else if (FILE* f = _wfopen(victim.c_str(), L"r+b"))
            {
                std::fseek(f, static_cast<long>(r() % size), SEEK_SET);
                std::fputc(static_cast<int>(r() & 0xFF), f);
                std::fclose(f);
            }
            damaged += !ec;
        }
    });

    std::vector<ref_ptr<CD3D9HLSLProgram>> live;
    unsigned made = 0, dropped = 0, selections = 0;
    for (unsigned i = 0; i < programs; ++i)
    {
        ref_ptr<CD3D9HLSLProgram> p = Make("p" + std::to_string(i));
        EXPECT_TRUE(p) << "p" << i;
        made += p ? 1 : 0;
        if (p)
            live.push_back(p);
        for (int s = 0; s < 4 && !live.empty(); ++s)
        {
            Keys(random() % 8, random() % 8);
            live[random() % live.size()]->SelectVariant();
            ++selections;
        }
        // Dropped while its variants may still be in the compile thread's hands.
        if (live.size() > 6 || random() % 3 == 0)
        {
            live.erase(live.begin() + random() % live.size());
            ++dropped;
        }
        watchdog.Tick();
    }
    stop.store(true);
    damage.join();

    // Every variant of the programs still alive ends ready or failed.
    unsigned ready = 0, failed = 0, other = 0;
    for (ref_ptr<CD3D9HLSLProgram>& p : live)
        for (uint64_t keys = 0; keys < 4; ++keys)
        {
            Keys(keys, keys);
            for (int wait = 0; wait < 60000 && !p->SelectVariant() && p->GetCurrentVariant()->State() != VARIANT_FAILED;
                 ++wait)
            {
                Sleep(2);
                watchdog.Tick();
            }
            const int32_t state = p->GetCurrentVariant()->State();
            ready += state == VARIANT_READY;
            failed += state == VARIANT_FAILED;
            other += state != VARIANT_READY && state != VARIANT_FAILED;
        }
    live.clear();
    std::printf("compile stress: %u programs made, %u dropped early, %u selections, %u cache entries damaged; "
                "variants checked: %u ready, %u failed, %u neither\n",
                made, dropped, selections, damaged.load(), ready, failed, other);
    soak::Bench("compile_programs", made, "programs");
    soak::Bench("compile_entries_damaged", damaged.load(), "entries");
    soak::Bench("compile_variants_unsettled", other, "variants");
    EXPECT_EQ(programs, made);
    EXPECT_EQ(0u, other);
    EXPECT_GT(ready, 0u);
}

} // namespace
