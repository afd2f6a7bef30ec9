// A log file of which a test expects that every line is a whole record. For tests with GoogleTest.
//
//     EXPECT_EQ(Texts(machine.Log), Strings({"Log opened", "Log closing"}));
#pragma once

#include "testkit/log_reader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace testkit {

/// Reads a log file. The test fails for each line that is not a whole record.
inline LogFile WholeLog(const std::filesystem::path& path)
{
    LogFile log(path);
    for (const std::string_view line : log.Torn())
        ADD_FAILURE() << "not a whole record: " << line;
    return log;
}

/// The texts of a whole log's records.
inline std::vector<std::string> Texts(const std::filesystem::path& path)
{
    std::vector<std::string> texts;
    const LogFile log = WholeLog(path);
    for (const Record& record : log.Records())
        texts.emplace_back(record.Text);
    return texts;
}

}  // namespace testkit
