#include "base/StaticFunc.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using S = CStaticFunc;

namespace
{
class IniFile : public ::testing::Test
{
protected:
    void SetUp() override
    {
        // Settings files are looked up in the Windows folder unless the path is full.
        m_path = S::GetCurrentDir() + "\\base_ini_test.ini";
        FILE* f = std::fopen(m_path.c_str(), "w");
        ASSERT_NE(nullptr, f);
        std::fprintf(f, "[Render]\nWidth=1280\nHeight = -720\nName=Korvo Engine\nBad=abc\n");
        std::fprintf(f, "Long=%s\n", std::string(400, 'L').c_str());
        std::fprintf(f, "[Other]\nWidth=7\n");
        std::fclose(f);
    }
    void TearDown() override { std::remove(m_path.c_str()); }
    std::string m_path;
};
} // namespace

TEST_F(IniFile, Integers)
{
    EXPECT_EQ(1280, S::GetIniInt(m_path.c_str(), "Render", "Width"));
    EXPECT_EQ(7, S::GetIniInt(m_path.c_str(), "Other", "Width"));
    EXPECT_EQ(-720, S::GetIniInt(m_path.c_str(), "Render", "Height"));
    EXPECT_EQ(0, S::GetIniInt(m_path.c_str(), "Render", "Missing"));
    EXPECT_EQ(0, S::GetIniInt(m_path.c_str(), "Nowhere", "Width"));
    EXPECT_EQ(0, S::GetIniInt(m_path.c_str(), "Render", "Bad"));
    EXPECT_EQ(0, S::GetIniInt("C:\\no_such_dir\\none.ini", "Render", "Width"));
    EXPECT_EQ(0, S::GetIniInt(m_path.c_str(), nullptr, "Width"));
    EXPECT_EQ(0, S::GetIniInt(nullptr, "Render", "Width"));
}

TEST_F(IniFile, Strings)
{
    EXPECT_EQ("Korvo Engine", S::GetIniString(m_path.c_str(), "Render", "Name"));
    EXPECT_EQ("1280", S::GetIniString(m_path.c_str(), "Render", "Width"));
    EXPECT_EQ("", S::GetIniString(m_path.c_str(), "Render", "Missing"));
    // The 256-byte buffer keeps 255 characters.
    EXPECT_EQ(std::string(255, 'L'), S::GetIniString(m_path.c_str(), "Render", "Long"));
    // A null key would list the section's keys; here it gives nothing.
    EXPECT_EQ("", S::GetIniString(m_path.c_str(), "Render", nullptr));
}

TEST(Win32Helpers, DirectoriesAndRandom)
{
    const std::string start = S::GetCurrentDir();
    ASSERT_FALSE(start.empty());
    S::CreateDirectories(start + "\\base_cwd_test");
    EXPECT_TRUE(S::SetCurrentDir(start + "\\base_cwd_test"));
    EXPECT_EQ(start + "\\base_cwd_test", S::GetCurrentDir());
    EXPECT_TRUE(S::SetCurrentDir(start));
    EXPECT_FALSE(S::SetCurrentDir(start + "\\no_such_directory_here"));
    EXPECT_EQ(start, S::GetCurrentDir());
    RemoveDirectoryA((start + "\\base_cwd_test").c_str());

    const std::string exeDir = S::GetExeDir();
    ASSERT_FALSE(exeDir.empty());
    EXPECT_EQ('\\', exeDir.back());
    char module[MAX_PATH] = {0};
    GetModuleFileNameA(nullptr, module, MAX_PATH);
    EXPECT_EQ(0u, std::string(module).find(exeDir));

    // Limit 0 answers 0 and leaves rand's sequence where it was.
    std::srand(1234);
    const int first = std::rand();
    std::srand(1234);
    EXPECT_EQ(0u, S::Random(0, false));
    EXPECT_EQ(0u, S::Random(0, true));
    EXPECT_EQ(first, std::rand());
    for (int i = 0; i < 1000; ++i)
        EXPECT_LT(S::Random(7, i == 0), 7u);
    std::srand(99);
    const unsigned a = S::Random(1000000, false);
    std::srand(99);
    EXPECT_EQ(a, static_cast<unsigned>(std::rand()) % 1000000u);
}
