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

typedef std::vector<std::string> Lines;

std::tm Time(int year, int month, int day, int hour, int minute, int second)
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

// The file's lines, removing it; none when it does not exist.
Lines TakeLines(const std::string& path)
{
    Lines lines;
    {
        std::ifstream in(path); // text mode: a Windows line end reads as one line feed
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
    }
    std::remove(path.c_str());
    return lines;
}

TEST(Log, DatedNamesAndLinesHaveNoLeadingZerosAndNoBlank)
{
    // The widest stamp still leaves room for the longest message, 1023 characters.
    const std::string message(1023, 'm');
    EXPECT_EQ(
        (Lines{"Log_2024_3_5.log", "Log_1999_12_31.log", "[8:0:9]started", "[0:0:0]", "[23:59:59]" + message}),
        (Lines{S::DatedLogFileName(Time(2024, 3, 5, 0, 0, 0)), S::DatedLogFileName(Time(1999, 12, 31, 23, 59, 59)),
               S::DatedLogLine(Time(2024, 1, 1, 8, 0, 9), "started"),
               S::DatedLogLine(Time(2024, 1, 1, 0, 0, 0), nullptr),
               S::DatedLogLine(Time(2024, 1, 1, 23, 59, 59), message.c_str())}));
}

TEST(Log, FilesGetAppendedLinesCutToTheMessageBuffer)
{
    const std::string path = "base_log_to_file.txt";
    std::remove(path.c_str());
    S::LogToFile(path.c_str(), nullptr);
    S::LogToFile(nullptr, "x");
    S::LogToFile(path.c_str(), "first %u", 1u);
    S::LogToFile(path.c_str(), "%s", std::string(1500, 'q').c_str());
    S::LogToFile(path.c_str(), "third");
    S::LogToFile("no_such_dir_for_log/x.txt", "lost"); // quietly
    EXPECT_EQ((Lines{"first 1", std::string(1023, 'q'), "third"}), TakeLines(path));

    // Today's file, stamped (the stamp's form is above); around midnight the date may
    // change between the readings, and then the test tries again.
    auto today = [] {
        unsigned y, mo, d, h, mi, s;
        S::GetLocalTimeParts(y, mo, d, h, mi, s);
        return "Log_" + std::to_string(y) + "_" + std::to_string(mo) + "_" + std::to_string(d) + ".log";
    };
    for (int attempt = 0; attempt < 2; ++attempt)
    {
        const std::string name = today();
        std::remove(name.c_str());
        S::LogToDatedFile("value %d and %s", 17, "text");
        S::LogToDatedFile(nullptr);
        const Lines lines = TakeLines(name);
        if (name != today())
            continue;
        ASSERT_EQ(1u, lines.size()) << name;
        EXPECT_EQ('[', lines[0][0]);
        EXPECT_EQ("]value 17 and text", lines[0].substr(lines[0].find(']')));
        return;
    }
    FAIL() << "the date changed during both attempts";
}

} // namespace
