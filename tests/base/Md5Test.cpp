#include "base/Md5.h"
#include "base/StaticFunc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace
{
std::string Digest(const std::string& text)
{
    Md5 md5;
    md5.Update(text);
    return md5.HexDigest();
}

// 'a' to 'z' over and over: lengths around the 56- and 64-byte padding boundaries.
std::string Letters(size_t n)
{
    std::string s;
    for (size_t i = 0; i < n; ++i)
        s += static_cast<char>('a' + i % 26);
    return s;
}

std::vector<unsigned char> LargeInput()
{
    std::vector<unsigned char> bytes(3 * 1024 * 1024 + 17);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>((i * 31 + (i >> 8)) & 0xFF);
    return bytes;
}

// The digest of LargeInput(), computed when this test was written with the host's md5sum
// over the same bytes (written by a separate script), not by this code.
const char kLargeDigest[] = "fcf173dd6da44a51998b42815cc132dc";
} // namespace

TEST(Md5, AppendixTestSuite)
{
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", Digest(""));
    EXPECT_EQ("0cc175b9c0f1b6a831c399e269772661", Digest("a"));
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", Digest("abc"));
    EXPECT_EQ("f96b697d7cb7938d525a2f31aaf161d0", Digest("message digest"));
    EXPECT_EQ("c3fcd3d76192e4007dfb496cca67e13b", Digest("abcdefghijklmnopqrstuvwxyz"));
    EXPECT_EQ("d174ab98d277d9f5a5611c2c9f419d9f",
              Digest("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"));
    EXPECT_EQ("57edf4a22be3c955ac49da2e2107b67a", Digest("1234567890123456789012345678901234567890"
                                                         "1234567890123456789012345678901234567890"));
}

TEST(Md5, LengthsAroundThePaddingBoundary)
{
    // Expected digests from the host's md5sum over the same letters, at test-writing time.
    EXPECT_EQ("0d7ae056b2f015cd7dc67494efd658f1", Digest(Letters(55))); // padding fits in the block
    EXPECT_EQ("31fcfb5165169eb55898e7e4cf34d19a", Digest(Letters(56))); // needs a second block
    EXPECT_EQ("1b30c0670c15e7da3c2ba7bce77ebe99", Digest(Letters(63)));
    EXPECT_EQ("a2eaf6295c32adc403865fd96a2f182b", Digest(Letters(64))); // exactly one block
    EXPECT_EQ("eba2cce0ca8df47e62414a736b3105a2", Digest(Letters(65)));
}

TEST(Md5, PiecesGiveTheSameDigestAsOneCall)
{
    const std::vector<unsigned char> bytes = LargeInput();
    Md5 whole;
    whole.Update(bytes.data(), bytes.size());
    EXPECT_EQ(kLargeDigest, whole.HexDigest());

    // Odd piece sizes cross the block boundary in every way: inside, at and across it.
    const size_t sizes[] = {1, 63, 64, 65, 7, 1000, 4096, 55, 56, 131071};
    Md5 pieces;
    size_t offset = 0, k = 0;
    while (offset < bytes.size())
    {
        const size_t n = std::min(sizes[k++ % (sizeof(sizes) / sizeof(sizes[0]))], bytes.size() - offset);
        pieces.Update(bytes.data() + offset, n);
        offset += n;
    }
    EXPECT_EQ(kLargeDigest, pieces.HexDigest());
}

TEST(Md5, DigestClosesOnceAndResetStartsOver)
{
    Md5 md5;
    md5.Update("ab");
    md5.Update(std::string("c"));
    const std::string first = md5.HexDigest();
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", first);
    // A second call answers the same digest: the padding is not added twice.
    EXPECT_EQ(first, md5.HexDigest());
    md5.Reset();
    md5.Update("a");
    EXPECT_EQ("0cc175b9c0f1b6a831c399e269772661", md5.HexDigest());
    md5.Reset();
    md5.Update(nullptr, 5); // no bytes: nothing fed
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", md5.HexDigest());
}

TEST(Md5, StringAndFileHelpers)
{
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", CStaticFunc::Md5OfString("abc"));

    const std::vector<unsigned char> bytes = LargeInput();
    const char* path = "md5_test_input.bin";
    FILE* file = std::fopen(path, "wb");
    ASSERT_NE(nullptr, file);
    ASSERT_EQ(bytes.size(), std::fwrite(bytes.data(), 1, bytes.size(), file));
    std::fclose(file);
    EXPECT_EQ(kLargeDigest, CStaticFunc::Md5OfFile(path));
    std::remove(path);

    EXPECT_EQ(" ", CStaticFunc::Md5OfFile("no_such_file_for_md5.bin"));
}
