// Log files: the dated name and stamp, and what the writers leave in the files.
#include "base/StaticFunc.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <fstream>
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

// The file's lines; none when it does not exist.
std::vector<std::string> ReadLines(const std::string& path)
{
    std::ifstream in(path); // text mode: a Windows line end reads as one line feed
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

std::string TodaysLog()
{
    unsigned y, mo, d, h, mi, s;
    S::GetLocalTimeParts(y, mo, d, h, mi, s);
    return "Log_" + std::to_string(y) + "_" + std::to_string(mo) + "_" + std::to_string(d) + ".log";
}

TEST(Log, DatedNameAndStampHaveNoLeadingZeros)
{
    // The widest stamp still leaves room for the longest message, 1023 characters.
    const std::string message(1023, 'm');
    EXPECT_EQ((std::vector<std::string>{"Log_2024_3_5.log", "Log_1999_12_31.log", "[8:0:9]started", "[0:0:0]",
                                        "[23:59:59]" + message}),
              (std::vector<std::string>{S::DatedLogFileName(MakeTime(2024, 3, 5, 0, 0, 0)),
                                        S::DatedLogFileName(MakeTime(1999, 12, 31, 23, 59, 59)),
                                        S::DatedLogLine(MakeTime(2024, 1, 1, 8, 0, 9), "started"),
                                        S::DatedLogLine(MakeTime(2024, 1, 1, 0, 0, 0), nullptr),
                                        S::DatedLogLine(MakeTime(2024, 1, 1, 23, 59, 59), message.c_str())}));
}

TEST(Log, DatedFileGetsStampedLinesCutToTheMessageBuffer)
{
    // Around midnight the date may change between the readings; then try again.
    for (int attempt = 0; attempt < 2; ++attempt)
    {
        const std::string name = TodaysLog();
        std::remove(name.c_str());
        S::LogToDatedFile("value %d and %s", 17, "text");
        S::LogToDatedFile("%s", std::string(2000, 'z').c_str());
        S::LogToDatedFile(nullptr);
        if (name != TodaysLog())
            continue;
        const std::vector<std::string> lines = ReadLines(name);
        std::remove(name.c_str());
        ASSERT_EQ(2u, lines.size()) << name;
        // "[h:m:s]" without leading zeros, then the message with no blank between.
        unsigned h, m, s;
        int used = 0;
        ASSERT_EQ(3, std::sscanf(lines[0].c_str(), "[%u:%u:%u]%n", &h, &m, &s, &used));
        EXPECT_EQ("[" + std::to_string(h) + ":" + std::to_string(m) + ":" + std::to_string(s) + "]value 17 and text",
                  lines[0]);
        EXPECT_EQ(std::string(1023, 'z'), lines[1].substr(lines[1].find(']') + 1));
        return;
    }
    FAIL() << "the date changed during both attempts";
}

TEST(Log, LogToFileAppendsWithoutStamp)
{
    const std::string path = "base_log_to_file.txt";
    std::remove(path.c_str());
    S::LogToFile(path.c_str(), nullptr);
    S::LogToFile(nullptr, "x");
    S::LogToFile(path.c_str(), "first %u", 1u);
    S::LogToFile(path.c_str(), "%s", std::string(1500, 'q').c_str());
    S::LogToFile(path.c_str(), "third");
    EXPECT_EQ((std::vector<std::string>{"first 1", std::string(1023, 'q'), "third"}), ReadLines(path));
    std::remove(path.c_str());
    // A path that cannot be opened loses the line quietly.
    S::LogToFile("no_such_dir_for_log/x.txt", "lost");
    S::DebugPrint(nullptr);
}

} // namespace
