// A family of processes with a log of its own, and the log as text.
#pragma once

#include "processes.h"
#include "support.h"
#include "tessmaru/log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <vector>

namespace support {

/// The fields of a record, or one field for a line that is none.
using Fields = std::vector<std::string>;

inline Fields Split(const std::string& line)
{
    constexpr std::string_view separator = " | ";
    Fields fields;
    std::size_t start = 0;
    for (int i = 0; i < 5; ++i) {
        const std::size_t end = line.find(separator, start);
        if (end == std::string::npos)
            return {line};
        fields.push_back(line.substr(start, end - start));
        start = end + separator.size();
    }
    fields.push_back(line.substr(start));
    return fields;
}

/// The records of a log file. A test fails on one that is not whole.
inline std::vector<Fields> Records(const std::string& path)
{
    const std::string bytes = ReadFile(path);
    utility::wstring units(bytes.size() / 2, u'\0');
    std::memcpy(units.data(), bytes.data(), units.size() * 2);
    std::istringstream text(Narrow(units));
    std::vector<Fields> records;
    for (std::string line; std::getline(text, line);) {
        EXPECT_TRUE(!line.empty() && line.back() == '\r') << line;
        line.pop_back();
        records.push_back(Split(line));
        EXPECT_EQ(records.back().size(), 6U) << line;
    }
    EXPECT_TRUE(bytes.size() % 2 == 0 && (units.empty() || units.back() == u'\n')) << "whole lines";
    return records;
}

/// The texts of a log file's records.
inline std::vector<std::string> Texts(const std::string& path)
{
    std::vector<std::string> texts;
    for (const Fields& record : Records(path))
        texts.push_back(record.back());
    return texts;
}

inline std::string Escaped(std::string text)
{
    for (std::size_t at = 0; (at = text.find('\\', at)) != std::string::npos; at += 2)
        text.insert(at, 1, '\\');
    return text;
}

/// A machine whose settings name a log in its folder.
class LogWorld : public Machine {
public:
    LogWorld() : Log(Folder / "App.log"), Previous(Folder / "Previous App.log")
    {
        if (!Folder.IsJoined())
            SetLog(Log);
    }
    explicit LogWorld(const std::string& mask) : LogWorld() { SetLog(Log, mask); }

    void SetLog(const std::string& path, const std::string& mask = "", const std::string& more = "") const
    {
        SetRegistry("[" + std::string(SuiteKey) + "Log\\Application]\r\n\"FilePath\"=\"" + Escaped(path) + "\"\r\n" +
                    (mask.empty() ? "" : "\"DebugMask\"=\"" + mask + "\"\r\n") + more);
    }

    /// The name that every process derives for the log's mutex.
    utility::wstring MutexName() const
    {
        utility::wstring name = Wide(Log + ".Mutex");
        std::replace(name.begin(), name.end(), u'\\', u'_');
        return name;
    }

    const std::string Log;
    const std::string Previous;
};

}  // namespace support
