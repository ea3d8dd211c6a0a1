#include "base/StaticFunc.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#ifdef _WIN32
#include <direct.h>
#define kv_rmdir _rmdir
#else
#include <unistd.h>
#define kv_rmdir rmdir
#endif

using S = CStaticFunc;

TEST(Path, PartsOfAPath)
{
    const struct
    {
        const char* what;
        std::string (*form)(const std::string&);
        std::vector<std::pair<const char*, const char*>> rows; // path, answer
    } forms[] = {
        // The last '\' wins over a later '/'; a dot in the directory is no extension.
        {"GetFileTitle",
         &S::GetFileTitle,
         {{"shader\\effects\\water.fx", "water"},
          {"shader/effects/water.fx", "water"},
          {"a\\b/c.fx", "b/c"},
          {"dir/archive.tar.gz", "archive.tar"},
          {"noext", "noext"},
          {"dir.v2\\file", "file"},
          {"dir/", ""},
          {"dir\\", ""},
          {"", ""}}},
        {"GetFileName",
         &S::GetFileName,
         {{"shader\\effects\\water.fx", "water.fx"}, {"water.fx", "water.fx"}, {"dir/", ""}}},
        {"GetExtension", &S::GetExtension, {{"archive.tar.gz", ".gz"}, {"README", ""}, {"name.", "."}}},
        {"GetDirectory", &S::GetDirectory, {{"a\\b/c.fx", "a\\b/"}, {"a/b\\c.fx", "a/b\\"}, {"c.fx", ""}}},
        {"GetParentDir", &S::GetParentDir, {{"a\\b\\c.fx", "a/b"}, {"a/b/", "a/b"}, {"c.fx", ""}}},
        {"StandardisePath", &S::StandardisePath, {{"a\\b", "a/b/"}, {"a/b/", "a/b/"}, {"", ""}}},
        {"NormalisePath forward",
         [](const std::string& p) { return S::NormalisePath(p, true); },
         {{"a\\\\b//c\\/", "a/b/c/"}, {"abc", "abc"}}},
        {"NormalisePath back",
         [](const std::string& p) { return S::NormalisePath(p, false); },
         {{"a//b\\/c", "a\\b\\c"}}},
        {"AppendSlash", &S::AppendSlash, {{"a", "a/"}, {"a\\", "a\\"}, {"a/", "a/"}, {"", ""}}},
    };
    for (const auto& f : forms)
        for (const auto& r : f.rows)
            EXPECT_EQ(r.second, f.form(r.first)) << f.what << " of \"" << r.first << "\"";
}

TEST(Path, SplitForms)
{
    std::string base = "x", ext = "x", dir = "x", name = "x";
    S::SplitBaseName("archive.tar.gz", base, ext);
    EXPECT_EQ("archive.tar", base);
    EXPECT_EQ("gz", ext);
    S::SplitBaseName("README", base, ext);
    EXPECT_EQ("README", base);
    EXPECT_EQ("", ext);

    S::SplitPath("a\\b\\c.fx", name, dir);
    EXPECT_EQ("c.fx", name);
    EXPECT_EQ("a/b/", dir);
    S::SplitPath("c.fx", name, dir);
    EXPECT_EQ("c.fx", name);
    EXPECT_EQ("", dir);

    S::SplitFullPath("media\\tex\\stone.dds", base, ext, dir);
    EXPECT_EQ("stone", base);
    EXPECT_EQ("dds", ext);
    EXPECT_EQ("media/tex/", dir);
}

TEST(Files, CreateDirectoriesAndFileHelpers)
{
    const std::string root = "base_path_test_dir";
    S::CreateDirectories(root + "\\one/two");
    const std::string file = root + "/one/two/data.bin";
    FILE* out = std::fopen(file.c_str(), "wb");
    ASSERT_NE(nullptr, out) << "the directories were not made";
    const std::string content(3000, 'k');
    std::fwrite(content.data(), 1, content.size(), out);
    std::fclose(out);

    EXPECT_TRUE(S::IsFile(file));
    EXPECT_FALSE(S::IsFile(root + "/one")); // a directory is not a file
    EXPECT_FALSE(S::IsFile(root + "/missing"));

    FILE* in = std::fopen(file.c_str(), "rb");
    ASSERT_NE(nullptr, in);
    std::fseek(in, 100, SEEK_SET);
    EXPECT_EQ(3000, S::GetFileSize(in));
    // The position is back at the start.
    std::vector<char> buffer(4000, 0);
    EXPECT_EQ(3000u, S::ReadFully(in, buffer.data(), buffer.size()));
    EXPECT_EQ(content, std::string(buffer.data(), 3000));
    std::fseek(in, 0, SEEK_SET);
    EXPECT_EQ(10u, S::ReadFully(in, buffer.data(), 10));
    std::fclose(in);

    EXPECT_EQ(-1, S::GetFileSize(nullptr));
    EXPECT_EQ(0u, S::ReadFully(nullptr, buffer.data(), 10));

    std::remove(file.c_str());
    EXPECT_EQ(0, kv_rmdir((root + "/one/two").c_str()));
    EXPECT_EQ(0, kv_rmdir((root + "/one").c_str()));
    EXPECT_EQ(0, kv_rmdir(root.c_str()));
}
