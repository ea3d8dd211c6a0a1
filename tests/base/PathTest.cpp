#include "base/StaticFunc.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#ifdef _WIN32
#include <direct.h>
#define kv_rmdir _rmdir
#else
#include <unistd.h>
#define kv_rmdir rmdir
#endif

using S = CStaticFunc;

TEST(Path, FileTitleAndName)
{
    EXPECT_EQ("water", S::GetFileTitle("shader\\effects\\water.fx"));
    EXPECT_EQ("water", S::GetFileTitle("shader/effects/water.fx"));
    // The last '\' wins over a later '/'.
    EXPECT_EQ("b/c", S::GetFileTitle("a\\b/c.fx"));
    EXPECT_EQ("archive.tar", S::GetFileTitle("dir/archive.tar.gz"));
    EXPECT_EQ("noext", S::GetFileTitle("noext"));
    // A dot in the directory is not the extension.
    EXPECT_EQ("file", S::GetFileTitle("dir.v2\\file"));
    EXPECT_EQ("", S::GetFileTitle("dir/"));
    EXPECT_EQ("", S::GetFileTitle("dir\\"));
    EXPECT_EQ("", S::GetFileTitle(""));

    EXPECT_EQ("water.fx", S::GetFileName("shader\\effects\\water.fx"));
    EXPECT_EQ("water.fx", S::GetFileName("water.fx"));
    EXPECT_EQ("", S::GetFileName("dir/"));
}

TEST(Path, ExtensionAndDirectories)
{
    EXPECT_EQ(".gz", S::GetExtension("archive.tar.gz"));
    EXPECT_EQ("", S::GetExtension("README"));
    EXPECT_EQ(".", S::GetExtension("name."));

    EXPECT_EQ("a\\b/", S::GetDirectory("a\\b/c.fx"));
    EXPECT_EQ("a/b\\", S::GetDirectory("a/b\\c.fx"));
    EXPECT_EQ("", S::GetDirectory("c.fx"));

    EXPECT_EQ("a/b", S::GetParentDir("a\\b\\c.fx"));
    EXPECT_EQ("a/b", S::GetParentDir("a/b/"));
    EXPECT_EQ("", S::GetParentDir("c.fx"));
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

TEST(Path, Standardise)
{
    EXPECT_EQ("a/b/", S::StandardisePath("a\\b"));
    EXPECT_EQ("a/b/", S::StandardisePath("a/b/"));
    EXPECT_EQ("", S::StandardisePath(""));

    EXPECT_EQ("a/b/c/", S::NormalisePath("a\\\\b//c\\/", true));
    EXPECT_EQ("a\\b\\c", S::NormalisePath("a//b\\/c", false));
    EXPECT_EQ("abc", S::NormalisePath("abc", true));

    EXPECT_EQ("a/", S::AppendSlash("a"));
    EXPECT_EQ("a\\", S::AppendSlash("a\\"));
    EXPECT_EQ("a/", S::AppendSlash("a/"));
    EXPECT_EQ("", S::AppendSlash(""));
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
    EXPECT_FALSE(S::IsFile(root + "/one"));  // a directory is not a file
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
