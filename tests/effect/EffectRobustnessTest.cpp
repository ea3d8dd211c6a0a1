// Bytes from anywhere: every truncation of a valid effect fails cleanly, and
// single-byte and single-word changes never crash it (the native build runs
// these under AddressSanitizer and UndefinedBehaviorSanitizer).

#include "D3D9RenderSystem/D3D9ParseEffect.h"
#include "EffectLogCapture.h"
#include "ExerciseEffect.h"
#include "FullEffect.h"

#include <gtest/gtest.h>

#include <memory>

using namespace fxtest;

namespace
{

// Parses from a block of exactly size bytes, so any read past it is caught.
bool ParseExact(const uint8_t* bytes, size_t size, size_t* found)
{
    std::unique_ptr<uint8_t[]> copy(new uint8_t[size ? size : 1]);
    if (size)
        std::memcpy(copy.get(), bytes, size);
    CD3D9ParseEffect fx;
    const bool ok = fx.Parse(copy.get(), static_cast<uint32_t>(size));
    if (ok)
        *found += ExerciseEffect(fx);
    return ok;
}

} // namespace

TEST(EffectRobustness, TheValidEffectAnswersEveryQuery)
{
    EffectLogCapture log;
    const Bytes full = BuildFullEffect();
    size_t found = 0;
    ASSERT_TRUE(ParseExact(full.data(), full.size(), &found));
    // Every parameter, annotation, element and member is reached.
    EXPECT_GT(found, kFullEffectHandles);
}

TEST(EffectRobustness, EveryTruncationFails)
{
    EffectLogCapture log;
    const Bytes full = BuildFullEffect();
    size_t found = 0;
    for (size_t size = 0; size < full.size(); ++size)
    {
        log.Clear();
        EXPECT_FALSE(ParseExact(full.data(), size, &found)) << size;
        ASSERT_FALSE(log.lines().empty());
        const std::string& last = log.lines().back().text;
        EXPECT_TRUE(last == "Failed to parse effect.\n" || last == "parseEffect_notAnEffectsFile") << size << last;
    }
}

TEST(EffectRobustness, SingleByteAndWordChangesNeverCrash)
{
    EffectLogCapture log;
    const Bytes full = BuildFullEffect();
    size_t found = 0, parsed[2] = {0, 0}, failed[2] = {0, 0};
    auto tryChange = [&](int kind, size_t at, const void* value, size_t size) {
        Bytes changed = full;
        std::memcpy(&changed[at], value, size);
        if (changed == full)
            return;
        log.Clear();
        (ParseExact(changed.data(), changed.size(), &found) ? parsed : failed)[kind]++;
    };
    for (size_t at = 0; at < full.size(); ++at)
        for (uint8_t value :
             {uint8_t(0), uint8_t(0xFF), uint8_t(0x80), uint8_t(full[at] + 1), uint8_t(full[at] ^ 0x10)})
            tryChange(0, at, &value, 1);
    for (size_t at = 0; at + 4 <= full.size(); at += 4)
    {
        const uint32_t old = WordAt(full.data(), at);
        for (uint32_t value : {0u, 1u, 2u, 3u, 4u, 5u, 16u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFFEu, old + 1,
                               old - 1, old + 4, old - 4, old * 2, old + 0x100})
            tryChange(1, at, &value, 4);
    }
    // Both outcomes occur for bytes and for words: values, padding and names may change freely.
    for (int kind = 0; kind < 2; ++kind)
    {
        EXPECT_GT(parsed[kind], 100u) << (kind ? "words" : "bytes");
        EXPECT_GT(failed[kind], 100u) << (kind ? "words" : "bytes");
    }
}
