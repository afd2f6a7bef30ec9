// Reads the platform's export format, line by line. A line that is not sound is dropped, and the lines behind
// it count; only values that follow a broken key line are dropped with it, as nobody knows whose they are.
#include "registry_file.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace layer {

namespace {

// What a byte that is no UTF-8 turns into: the upper half of the surrogates never stands alone in sound text.
constexpr WCHAR BadByte = 0xDC00;

constexpr std::size_t MaxComplaints = 20;

constexpr std::string_view HiveNames[] = {"HKEY_CLASSES_ROOT", "HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE", "HKEY_USERS"};
constexpr std::uintptr_t FirstHive = 0x80000000;

bool SameAscii(TextView text, std::string_view ascii)
{
    return text.size() == ascii.size() &&
           std::equal(text.begin(), text.end(), ascii.begin(), [](WCHAR unit, char letter) {
               const auto small = [](int c) { return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c; };
               return small(unit) == small(letter);
           });
}

bool StartsWithAscii(TextView text, std::string_view ascii)
{
    return text.size() >= ascii.size() && SameAscii(text.substr(0, ascii.size()), ascii);
}

std::optional<std::size_t> HiveIndex(TextView name)
{
    for (std::size_t i = 0; i < std::size(HiveNames); ++i) {
        if (SameAscii(name, HiveNames[i]))
            return i;
    }
    return std::nullopt;
}

int HexDigit(WCHAR unit)
{
    if (unit >= '0' && unit <= '9')
        return unit - '0';
    if (unit >= 'a' && unit <= 'f')
        return unit - 'a' + 10;
    return unit >= 'A' && unit <= 'F' ? unit - 'A' + 10 : -1;
}

bool IsBlank(WCHAR unit)
{
    return unit == ' ' || unit == '\t';
}

/// A number of up to eight hexadecimal digits, all of `digits`.
std::optional<DWORD> HexNumber(TextView digits)
{
    if (digits.empty() || digits.size() > 8)
        return std::nullopt;
    DWORD number = 0;
    for (const WCHAR unit : digits) {
        const int digit = HexDigit(unit);
        if (digit < 0)
            return std::nullopt;
        number = number << 4U | static_cast<DWORD>(digit);
    }
    return number;
}

/// Length of the UTF-8 sequence at the front of `bytes` and its code point; length 0 if there is none.
struct Sequence {
    std::size_t Length;
    std::uint32_t Point;
};
Sequence FirstSequence(std::span<const BYTE> bytes)
{
    const BYTE lead = bytes[0];
    const std::size_t length = lead < 0x80   ? 1
                               : lead < 0xC2 ? 0
                               : lead < 0xE0 ? 2
                               : lead < 0xF0 ? 3
                               : lead < 0xF5 ? 4
                                             : 0;
    if (length <= 1)
        return {length, lead};
    if (length > bytes.size())
        return {0, 0};
    std::uint32_t point = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((bytes[i] & 0xC0U) != 0x80)
            return {0, 0};
        point = point << 6U | (bytes[i] & 0x3FU);
    }
    constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool sound = point >= smallest[length] && point <= 0x10FFFF && (point < 0xD800 || point > 0xDFFF);
    return {sound ? length : 0, point};
}

Text FromUtf8(std::span<const BYTE> bytes)
{
    Text text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const auto [length, point] = FirstSequence(bytes);
        if (length == 0) {
            text += static_cast<WCHAR>(BadByte + bytes[0]);
        } else if (point < 0x10000) {
            text += static_cast<WCHAR>(point);
        } else {
            text += static_cast<WCHAR>(0xD7C0 + (point >> 10U));
            text += static_cast<WCHAR>(0xDC00 + (point & 0x3FFU));
        }
        bytes = bytes.subspan(std::max<std::size_t>(length, 1));
    }
    return text;
}

bool HasBadBytes(TextView text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool low = (text[i] & 0xFC00U) == 0xDC00;
        if (low && (i == 0 || (text[i - 1] & 0xFC00U) != 0xD800))
            return true;
    }
    return false;
}

bool IsUtf16(std::span<const BYTE> file)
{
    return file.size() >= 2 && file[0] == 0xFF && file[1] == 0xFE;
}

Text Decode(std::span<const BYTE> file)
{
    if (IsUtf16(file)) {
        Text text;
        text.reserve(file.size() / 2);
        for (std::size_t i = 2; i + 1 < file.size(); i += 2)
            text += static_cast<WCHAR>(file[i] | file[i + 1] << 8U);
        return text;
    }
    if (file.size() >= 3 && file[0] == 0xEF && file[1] == 0xBB && file[2] == 0xBF)
        file = file.subspan(3);
    return FromUtf8(file);
}

}  // namespace

class RegistryParser {
public:
    RegistryParser(RegistryFile& file, TextView text, bool mayHaveBadBytes)
        : Target(file), Rest(text), MayHaveBadBytes(mayHaveBadBytes)
    {
    }

    void Run()
    {
        while (!Rest.empty())
            Statement();
        if (Complaints > MaxComplaints)
            DebugLine("registry store: " + std::to_string(Complaints - MaxComplaints) + " more lines dropped");
    }

private:
    /// One line, with its continuations.
    void Statement()
    {
        const std::size_t line = Line;
        const TextView start = Rest;
        const char* const complaint = Understand();
        SkipLine();
        const TextView whole = start.substr(0, start.size() - Rest.size());
        if (complaint != nullptr)
            Complain(line, complaint);
        else if (MayHaveBadBytes && HasBadBytes(whole))
            Complain(line, "not UTF-8");
        else if (Pending)
            Apply();
        Pending = nullptr;
    }

    /// Null, or what is wrong with the line. What it asks for is left in Pending, as only a whole sound line
    /// may change anything.
    const char* Understand()
    {
        SkipBlanks();
        if (AtLineEnd() || Rest[0] == ';')
            return SkipToLineEnd();
        if (Rest[0] == '[')
            return KeyLine();
        if (Rest[0] == '"' || Rest[0] == '@')
            return ValueLine();
        if (Line == 1 &&
            (StartsWithAscii(Rest, "Windows Registry Editor Version 5.00") || StartsWithAscii(Rest, "REGEDIT4")))
            return SkipToLineEnd();
        return "neither a key nor a value";
    }

    const char* KeyLine()
    {
        Key = nullptr;
        TextView line = Rest.substr(0, LineLength());
        const std::size_t end = line.rfind(']');
        if (end == TextView::npos)
            return "a key without its closing bracket";
        if (!OnlyComment(line.substr(end + 1)))
            return "something behind a key";
        line = line.substr(1, end - 1);
        Deletes = !line.empty() && line[0] == '-';
        if (Deletes)
            line.remove_prefix(1);
        while (!line.empty() && line.back() == '\\')
            line.remove_suffix(1);
        const std::size_t hiveEnd = std::min(line.find('\\'), line.size());
        const auto hive = HiveIndex(line.substr(0, hiveEnd));
        if (!hive)
            return "an unknown root key";
        Hive = *hive;
        Name = line.substr(std::min(hiveEnd + 1, line.size()));
        Pending = &RegistryParser::ApplyKey;
        return SkipToLineEnd();
    }

    void ApplyKey()
    {
        auto& keys = Target.Hives[Hive];
        if (Deletes) {
            const FoldEqual equal;
            std::erase_if(keys, [&](const auto& entry) {
                const TextView path = entry.first;
                return path.size() >= Name.size() && equal(path.substr(0, Name.size()), Name) &&
                       (path.size() == Name.size() || Name.empty() || path[Name.size()] == '\\');
            });
            return;
        }
        // The keys above a key are there too.
        for (std::size_t end = Name.find('\\'); end != Text::npos; end = Name.find('\\', end + 1))
            keys.try_emplace(Name.substr(0, end));
        keys.try_emplace(Text());
        Key = &keys.try_emplace(Name).first->second;
    }

    const char* ValueLine()
    {
        Name.clear();
        if (Rest[0] == '@')
            Advance(1);
        else if (const char* complaint = QuotedName())
            return complaint;
        SkipBlanks();
        if (AtLineEnd() || Rest[0] != '=')
            return "a value without its equals sign";
        Advance(1);
        SkipBlanks();
        Value = RegistryValue();
        Deletes = false;
        if (const char* complaint = ValueData())
            return complaint;
        if (!OnlyComment(Rest.substr(0, LineLength())))
            return "something behind a value";
        if (Key == nullptr)
            return "a value without a key";
        Pending = &RegistryParser::ApplyValue;
        return nullptr;
    }

    void ApplyValue()
    {
        if (Deletes)
            Key->erase(Name);
        else
            Key->insert_or_assign(Name, std::move(Value));
    }

    const char* QuotedName()
    {
        Advance(1);
        while (!AtLineEnd()) {
            if (Rest[0] == '"') {
                Advance(1);
                return nullptr;
            }
            Name += Escaped();
        }
        return "a name without its closing quote";
    }

    const char* ValueData()
    {
        if (AtLineEnd())
            return "a value without data";
        if (Rest[0] == '-') {
            Deletes = true;
            Advance(1);
            return nullptr;
        }
        if (Rest[0] == '"')
            return QuotedText();
        if (StartsWithAscii(Rest, "dword:"))
            return Number();
        if (StartsWithAscii(Rest, "hex"))
            return Bytes();
        return "data of an unknown kind";
    }

    /// A text may run over line ends. Where none closes it, it ends at the next key.
    const char* QuotedText()
    {
        Text text;
        Advance(1);
        while (!Rest.empty() && Rest[0] != '"') {
            const bool newLine = Rest[0] == '\n';
            if (newLine) {
                text += '\n';
                Advance(1);
                if (StartsWithAscii(Rest, "[HKEY_") || StartsWithAscii(Rest, "[-HKEY_")) {
                    Ended = true;
                    return "a text without its closing quote";
                }
            } else {
                text += Escaped();
            }
        }
        if (Rest.empty())
            return "a text without its closing quote";
        Advance(1);
        text += WCHAR{0};
        Value.Type = REG_SZ;
        const auto* const bytes = reinterpret_cast<const BYTE*>(text.data());
        Value.Data.assign(bytes, bytes + text.size() * sizeof(WCHAR));
        return nullptr;
    }

    const char* Number()
    {
        Advance(6);
        const TextView line = Rest.substr(0, LineLength());
        const std::size_t end = static_cast<std::size_t>(
            std::find_if(line.begin(), line.end(), [](WCHAR unit) { return HexDigit(unit) < 0; }) - line.begin());
        const auto number = HexNumber(line.substr(0, end));
        if (!number)
            return "a number that is none";
        Advance(end);
        Value.Type = REG_DWORD;
        const auto* const bytes = reinterpret_cast<const BYTE*>(&*number);
        Value.Data.assign(bytes, bytes + sizeof *number);
        return nullptr;
    }

    const char* Bytes()
    {
        Advance(3);
        Value.Type = REG_BINARY;
        if (!AtLineEnd() && Rest[0] == '(') {
            const TextView line = Rest.substr(0, LineLength());
            const std::size_t end = line.find(')');
            const auto type = end == TextView::npos ? std::nullopt : HexNumber(line.substr(1, end - 1));
            if (!type)
                return "a type that is none";
            Value.Type = *type;
            Advance(end + 1);
        }
        if (AtLineEnd() || Rest[0] != ':')
            return "data of an unknown kind";
        Advance(1);
        return ByteList();
    }

    const char* ByteList()
    {
        bool expected = false;  // behind a comma
        for (;;) {
            SkipBlanksAndContinuations();
            const int high = AtLineEnd() ? -1 : HexDigit(Rest[0]);
            if (high < 0)
                return expected ? "a list of bytes that breaks off" : nullptr;
            Advance(1);
            int byte = high;
            if (const int low = AtLineEnd() ? -1 : HexDigit(Rest[0]); low >= 0) {
                byte = high * 16 + low;
                Advance(1);
            }
            Value.Data.push_back(static_cast<BYTE>(byte));
            SkipBlanksAndContinuations();
            expected = !AtLineEnd() && Rest[0] == ',';
            if (!expected)
                return nullptr;
            Advance(1);
        }
    }

    /// The next unit of a quoted text. A backslash takes the special meaning from a quote and a backslash.
    WCHAR Escaped()
    {
        if (Rest[0] == '\\' && Rest.size() > 1 && (Rest[1] == '\\' || Rest[1] == '"'))
            Advance(1);
        const WCHAR unit = Rest[0];
        Advance(1);
        return unit;
    }

    void SkipBlanks()
    {
        while (!Rest.empty() && IsBlank(Rest[0]))
            Advance(1);
    }

    void SkipBlanksAndContinuations()
    {
        SkipBlanks();
        while (!AtLineEnd() && Rest[0] == '\\' && OnlyBlanks(Rest.substr(1, LineLength() - 1))) {
            SkipLine();
            SkipBlanks();
        }
    }

    const char* SkipToLineEnd()
    {
        Rest.remove_prefix(LineLength());
        return nullptr;
    }

    /// To the start of the next line, unless a dropped text has got there already.
    void SkipLine()
    {
        if (std::exchange(Ended, false))
            return;
        Rest.remove_prefix(std::min(Rest.find('\n'), Rest.size()));
        Advance(std::min<std::size_t>(1, Rest.size()));
    }

    void Advance(std::size_t units)
    {
        Line +=
            static_cast<std::size_t>(std::count(Rest.begin(), Rest.begin() + static_cast<std::ptrdiff_t>(units), '\n'));
        Rest.remove_prefix(units);
    }

    bool AtLineEnd() const
    {
        return Rest.empty() || Rest[0] == '\n' || (Rest[0] == '\r' && (Rest.size() == 1 || Rest[1] == '\n'));
    }

    /// Units in front of the line end, which is LF or CR LF.
    std::size_t LineLength() const
    {
        std::size_t length = std::min(Rest.find('\n'), Rest.size());
        if (length > 0 && Rest[length - 1] == '\r')
            --length;
        return length;
    }

    static bool OnlyBlanks(TextView text) { return std::all_of(text.begin(), text.end(), IsBlank); }

    static bool OnlyComment(TextView text)
    {
        while (!text.empty() && IsBlank(text[0]))
            text.remove_prefix(1);
        return text.empty() || text[0] == ';';
    }

    void Apply() { (this->*Pending)(); }

    void Complain(std::size_t line, const char* complaint)
    {
        if (++Complaints <= MaxComplaints)
            DebugLine("registry store: line " + std::to_string(line) + " dropped: " + complaint);
    }

    RegistryFile& Target;
    TextView Rest;
    const bool MayHaveBadBytes;
    std::size_t Line = 1;
    std::size_t Complaints = 0;
    bool Ended = false;
    void (RegistryParser::*Pending)() = nullptr;

    RegistryValues* Key = nullptr;  // of the key that values belong to
    std::size_t Hive = 0;
    Text Name;
    RegistryValue Value;
    bool Deletes = false;
};

RegistryFile::RegistryFile(std::span<const BYTE> file)
{
    const Text text = Decode(file);
    RegistryParser(*this, text, !IsUtf16(file)).Run();
}

const RegistryKey* RegistryFile::Find(HKEY hive, TextView path) const
{
    const std::size_t index = reinterpret_cast<std::uintptr_t>(hive) - FirstHive;
    if (index >= HiveCount)
        return nullptr;
    if (!path.empty() && path.back() == '\\')
        path.remove_suffix(1);
    const auto found = Hives[index].find(path);
    return found == Hives[index].end() ? nullptr : &*found;
}

bool IsPredefined(HKEY key)
{
    return reinterpret_cast<std::uintptr_t>(key) - FirstHive < std::size(HiveNames);
}

}  // namespace layer
