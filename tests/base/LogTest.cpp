#include "base/StaticFunc.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using S = CStaticFunc;

namespace
{
std::tm MakeTime(int year, int month, int day, int hour, int minute, int second)
{
    std::tm t{};
    t.tm_year = year - 1900;
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = minute;
    t.tm_sec = second;
    return t;
}

std::vector<std::string> ReadLines(const std::string& path)
{
    std::ifstream in(path); // text mode: a Windows line end reads as one line feed
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

bool Exists(const std::string& path)
{
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f)
        std::fclose(f);
    return f != nullptr;
}
} // namespace

TEST(Log, DatedNameAndStampHaveNoLeadingZeros)
{
    EXPECT_EQ("Log_2024_3_5.log", S::DatedLogFileName(MakeTime(2024, 3, 5, 0, 0, 0)));
    // The first of January: month 1, not 0, and the full year.
    EXPECT_EQ("Log_2025_1_1.log", S::DatedLogFileName(MakeTime(2025, 1, 1, 0, 0, 0)));
    EXPECT_EQ("Log_1999_12_31.log", S::DatedLogFileName(MakeTime(1999, 12, 31, 23, 59, 59)));

    EXPECT_EQ("[8:0:9]started", S::DatedLogLine(MakeTime(2024, 1, 1, 8, 0, 9), "started"));
    EXPECT_EQ("[23:59:59]x", S::DatedLogLine(MakeTime(2024, 1, 1, 23, 59, 59), "x"));
    EXPECT_EQ("[0:0:0]", S::DatedLogLine(MakeTime(2024, 1, 1, 0, 0, 0), nullptr));
}

TEST(Log, LongestStampKeepsAFullMessage)
{
    // A message of 1023 characters, the most the message buffer holds, behind the widest stamp.
    const std::string message(1023, 'm');
    const std::string line = S::DatedLogLine(MakeTime(2024, 1, 1, 23, 59, 59), message.c_str());
    EXPECT_EQ("[23:59:59]" + message, line);
}

TEST(Log, DatedFileGetsStampedLines)
{
    // Around midnight the date may change between the readings; then read again.
    for (int attempt = 0; attempt < 2; ++attempt)
    {
        unsigned y0, mo0, d0, h0, mi0, s0, y1, mo1, d1, h1, mi1, s1;
        S::GetLocalTimeParts(y0, mo0, d0, h0, mi0, s0);
        char name[64];
        std::snprintf(name, sizeof(name), "Log_%u_%u_%u.log", y0, mo0, d0);
        std::remove(name);

        S::LogToDatedFile("value %d and %s", 17, "text");
        S::LogToDatedFile("%s", std::string(2000, 'z').c_str());
        S::GetLocalTimeParts(y1, mo1, d1, h1, mi1, s1);
        if (y0 != y1 || mo0 != mo1 || d0 != d1)
            continue;

        EXPECT_GE(mo0, 1u);
        EXPECT_LE(mo0, 12u);
        EXPECT_GE(y0, 2000u);
        const std::vector<std::string> lines = ReadLines(name);
        ASSERT_EQ(2u, lines.size()) << name;
        // "[h:m:s]" without leading zeros, then the message with no blank between.
        unsigned h, m, s;
        int used = 0;
        ASSERT_EQ(3, std::sscanf(lines[0].c_str(), "[%u:%u:%u]%n", &h, &m, &s, &used));
        const std::string stamp = lines[0].substr(0, static_cast<size_t>(used));
        char expectedStamp[32];
        std::snprintf(expectedStamp, sizeof(expectedStamp), "[%u:%u:%u]", h, m, s);
        EXPECT_EQ(expectedStamp, stamp);
        const unsigned at = h * 3600 + m * 60 + s;
        EXPECT_GE(at, h0 * 3600 + mi0 * 60 + s0);
        EXPECT_LE(at, h1 * 3600 + mi1 * 60 + s1);
        EXPECT_EQ("value 17 and text", lines[0].substr(stamp.size()));
        // 2000 characters are cut to the 1023 the message buffer holds.
        const size_t open = lines[1].find(']');
        ASSERT_NE(std::string::npos, open);
        EXPECT_EQ(std::string(1023, 'z'), lines[1].substr(open + 1));
        std::remove(name);
        return;
    }
    FAIL() << "the date changed during both attempts";
}

TEST(Log, NullArgumentsWriteNothing)
{
    unsigned y, mo, d, h, mi, s;
    S::GetLocalTimeParts(y, mo, d, h, mi, s);
    char name[64];
    std::snprintf(name, sizeof(name), "Log_%u_%u_%u.log", y, mo, d);
    std::remove(name);
    S::LogToDatedFile(nullptr);
    EXPECT_FALSE(Exists(name));

    const std::string path = "base_log_to_file.txt";
    std::remove(path.c_str());
    S::LogToFile(path.c_str(), nullptr);
    S::LogToFile(nullptr, "x");
    EXPECT_FALSE(Exists(path));
    S::DebugPrint(nullptr); // must not crash
}

TEST(Log, LogToFileAppendsWithoutStamp)
{
    const std::string path = "base_log_to_file.txt";
    std::remove(path.c_str());
    S::LogToFile(path.c_str(), "first %u", 1u);
    S::LogToFile(path.c_str(), "%s", std::string(1500, 'q').c_str());
    S::LogToFile(path.c_str(), "third");
    const std::vector<std::string> lines = ReadLines(path);
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("first 1", lines[0]);
    EXPECT_EQ(std::string(1023, 'q'), lines[1]);
    EXPECT_EQ("third", lines[2]);
    std::remove(path.c_str());

    // A path that cannot be opened loses the line quietly.
    S::LogToFile("no_such_dir_for_log/x.txt", "lost");
    EXPECT_FALSE(Exists("no_such_dir_for_log/x.txt"));
}
