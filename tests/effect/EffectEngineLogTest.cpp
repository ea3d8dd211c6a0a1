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
    EXPECT_EQ(lines[0].level, kv::LOG_ERROR);
    EXPECT_EQ(lines[0].file, "D3D9ParseEffect");
    EXPECT_GT(lines[0].line, 0);
    EXPECT_EQ(lines[0].text, "Effect data of 6 bytes ends inside its head\n");
    EXPECT_EQ(lines[1].level, kv::LOG_WARNING);
    EXPECT_EQ(lines[1].text, "Failed to parse effect.\n");
}
