// What a code can mean. Names come from the table of names, descriptions from the library.
#include "codes/readings.h"

#include "platform/errno_text.h"
#include "tessmaru/errors.h"
#include "text/ascii.h"
#include "text/wide.h"

#include <algorithm>
#include <charconv>

namespace tool {
namespace {

constexpr std::uint32_t FailureBit = 0x80000000;
constexpr std::uint32_t Win32Facility = 0x80070000;
constexpr std::uint32_t LargestWin32 = 0xFFFF;

struct OwnCode {
    std::uint32_t Code;
    const char* Description;
};

/// The library's own codes, which the system describes only by their facility.
constexpr OwnCode OwnCodes[] = {
    {0x80040302, "The record was not written: other writers kept the log for one second."},
    {0x80040303, "The record was not written: an exception was thrown while it was made."},
    {0x80040304, "The record was not written: the process had closed the log for good."},
};

/// The library's line for a code is "description [0xCODE: NAME - FACILITY]".
std::string DescriptionOf(std::uint32_t result)
{
    for (const OwnCode& each : OwnCodes) {
        if (each.Code == result)
            return each.Description;
    }
    std::string line = ToUtf8(utility::genHResultAsString(static_cast<LONG>(result)));
    line.erase(std::min(line.rfind(" [0x"), line.size()));
    return line == "Unknown or new error" ? std::string() : line;
}

std::string_view FirstName(CodeKind kind, std::uint32_t code)
{
    const auto names = CodeNames();
    const auto found = std::find_if(names.begin(), names.end(),
                                    [&](const CodeName& each) { return each.Kind == kind && each.Code == code; });
    return found == names.end() ? std::string_view() : found->Name;
}

Reading MakeReading(CodeKind kind, std::uint32_t code, std::string_view name)
{
    Reading reading{kind, code, std::string(name), {}};
    if (kind == CodeKind::errnum)
        reading.Description = platform::ErrnoText(static_cast<int>(code));
    else if (kind == CodeKind::win32 && code != 0)
        reading.Description = DescriptionOf(Win32Facility | code);
    else if (kind != CodeKind::ntstatus || code > LargestWin32)  // the system describes a small number as a Win32 error
        reading.Description = DescriptionOf(code);
    return reading;
}

/// Adds the meaning of a code, if it has a name or a description.
void Add(std::vector<Reading>& readings, CodeKind kind, std::uint32_t code)
{
    Reading reading = MakeReading(kind, code, FirstName(kind, code));
    // A small number is an HRESULT only if it has a name as one: the system describes it as a Win32 error.
    const bool isDescribed = !reading.Description.empty() && kind != CodeKind::ntstatus;
    if (!reading.Name.empty() || (isDescribed && (kind != CodeKind::hresult || code > LargestWin32)))
        readings.push_back(std::move(reading));
}

template <class Matches>
std::vector<Reading> Select(Matches matches)
{
    std::vector<Reading> readings;
    for (const CodeName& each : CodeNames()) {
        Reading reading = MakeReading(each.Kind, each.Code, each.Name);
        if (matches(reading))
            readings.push_back(std::move(reading));
    }
    return readings;
}

}  // namespace

std::optional<std::uint32_t> ReadCode(std::string_view word)
{
    constexpr std::size_t fullLength = 8;
    const bool hasPrefix = word.starts_with("0x") || word.starts_with("0X");
    if (hasPrefix)
        word.remove_prefix(2);
    const bool isHex = hasPrefix || word.size() == fullLength;
    const bool isNegative = !isHex && word.starts_with('-');
    if (isNegative)
        word.remove_prefix(1);
    std::uint32_t code = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), code, isHex ? 16 : 10);
    if (error != std::errc() || end != word.data() + word.size() || (isNegative && code > FailureBit))
        return std::nullopt;
    return isNegative ? 0U - code : code;
}

std::vector<Reading> ReadingsOf(std::uint32_t code)
{
    std::vector<Reading> readings;
    if (code <= LargestWin32)
        Add(readings, CodeKind::win32, code);
    Add(readings, CodeKind::hresult, code);
    Add(readings, CodeKind::ntstatus, code);
    if ((code & ~LargestWin32) == Win32Facility)
        Add(readings, CodeKind::win32, code & LargestWin32);
    if (code <= LargestWin32)
        Add(readings, CodeKind::errnum, code);
    return readings;
}

std::vector<Reading> ReadingsOf(std::string_view name)
{
    std::vector<Reading> readings;
    for (const CodeName& each : CodeNames()) {
        if (EqualIgnoringCase(each.Name, name))
            readings.push_back(MakeReading(each.Kind, each.Code, each.Name));
    }
    return readings;
}

std::vector<Reading> Search(std::string_view text)
{
    return Select([&](const Reading& reading) {
        return ContainsIgnoringCase(reading.Name, text) || ContainsIgnoringCase(reading.Description, text);
    });
}

}  // namespace tool
