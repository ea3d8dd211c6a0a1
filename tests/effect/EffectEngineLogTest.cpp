// In the plug-in the reader's messages reach the engine's log: errors with the reader's source position, warnings as
// warnings.

#include "D3D9RenderSystem/EffectEngineLog.h"
#include "D3D9RenderSystem/D3D9ParseEffect.h"
#include "D3D9RenderSystem/EffectLog.h"
#include "engine/Log.h"

#include <gtest/gtest.h>

TEST(EffectEngineLog, ErrorsAndWarningsReachTheEngine)
{
    kv::SetLogEcho(false);
    kv::ClearLog();
    ConnectEffectLogToEngine();
    const uint8_t shortEffect[6] = {0x01, 0x09, 0xFF, 0xFE, 0, 0};
    CD3D9ParseEffect fx;
    EXPECT_FALSE(fx.Parse(shortEffect, sizeof(shortEffect)));
    SetEffectLogSink(nullptr);

    const std::vector<kv::LogLine> lines = kv::GetLogLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ((std::vector<kv::LogLevel>{kv::LOG_ERROR, kv::LOG_WARNING}),
              (std::vector<kv::LogLevel>{lines[0].level, lines[1].level}));
    EXPECT_EQ("D3D9ParseEffect: Effect data of 6 bytes ends inside its head\n", lines[0].file + ": " + lines[0].text);
    EXPECT_GT(lines[0].line, 0);
    EXPECT_EQ("Failed to parse effect.\n", lines[1].text);
}
