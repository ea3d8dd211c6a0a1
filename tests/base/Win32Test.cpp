// The helpers that need Windows: settings files, the current and the program's
// directory, and the random numbers.
#include "base/StaticFunc.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

using S = CStaticFunc;

namespace
{

TEST(Win32Helpers, SettingsFiles)
{
    // Settings files are looked up in the Windows folder unless the path is full.
    const std::string path = S::GetCurrentDir() + "\\base_ini_test.ini";
    FILE* f = std::fopen(path.c_str(), "w");
    ASSERT_NE(nullptr, f);
    std::fprintf(f, "[Render]\nWidth=1280\nHeight = -720\nName=Korvo Engine\nBad=abc\nLong=%s\n[Other]\nWidth=7\n",
                 std::string(400, 'L').c_str());
    std::fclose(f);
    const char* file = path.c_str();
    const int ints[] = {S::GetIniInt(file, "Render", "Width"),
                        S::GetIniInt(file, "Other", "Width"),
                        S::GetIniInt(file, "Render", "Height"),
                        S::GetIniInt(file, "Render", "Missing"),
                        S::GetIniInt(file, "Nowhere", "Width"),
                        S::GetIniInt(file, "Render", "Bad"),
                        S::GetIniInt(file, nullptr, "Width"),
                        S::GetIniInt(nullptr, "Render", "Width"),
                        S::GetIniInt("C:\\no_such_dir\\none.ini", "Render", "Width")};
    EXPECT_EQ((std::vector<int>{1280, 7, -720, 0, 0, 0, 0, 0, 0}), std::vector<int>(ints, ints + 9));
    EXPECT_EQ("Korvo Engine", S::GetIniString(file, "Render", "Name"));
    EXPECT_EQ("", S::GetIniString(file, "Render", "Missing"));
    // The 256-byte buffer keeps 255 characters; a null key would list the section's keys.
    EXPECT_EQ(std::string(255, 'L'), S::GetIniString(file, "Render", "Long"));
    EXPECT_EQ("", S::GetIniString(file, "Render", nullptr));
    std::remove(file);
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
    char module[MAX_PATH] = {0};
    GetModuleFileNameA(nullptr, module, MAX_PATH);
    EXPECT_EQ(std::string(module).substr(0, std::string(module).rfind('\\') + 1), S::GetExeDir());

    // Limit 0 answers 0 and leaves rand's sequence where it was.
    std::srand(1234);
    const int first = std::rand();
    std::srand(1234);
    EXPECT_EQ(0u, S::Random(0, false) + S::Random(0, true));
    EXPECT_EQ(first, std::rand());
    for (int i = 0; i < 1000; ++i)
        EXPECT_LT(S::Random(7, i == 0), 7u);
    std::srand(99);
    const unsigned a = S::Random(1000000, false);
    std::srand(99);
    EXPECT_EQ(a, static_cast<unsigned>(std::rand()) % 1000000u);
}

} // namespace
