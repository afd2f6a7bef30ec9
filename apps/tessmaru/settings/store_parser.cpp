// Reads the export format of the registry by the library's rules, which docs/registry-store.md gives. The library keeps
// no lines; here every key, value and dropped line has its own. A statement is a line, or a value that goes on in
// further lines. Of a malformed statement, only the first line is dropped.
#include "settings/store_parser.h"

#include "settings/store_text.h"
#include "text/ascii.h"
#include "text/wide.h"

#include <algorithm>
#include <optional>
#include <unordered_map>

namespace tool {
namespace {

constexpr const char* Unclosed = "the text has no closing quotation mark";
constexpr std::string_view Header = "windows registry editor version 5.00";
constexpr std::string_view NarrowHeader = "regedit4";
constexpr std::uint32_t BinaryType = 3;

std::string Narrow(std::u16string_view text)
{
    return ToUtf8(utility::wstring(text.begin(), text.end()));
}

std::string Lower(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), LowerAscii);
    return lower;
}

int HexDigit(char16_t unit)
{
    if (unit >= u'0' && unit <= u'9')
        return unit - u'0';
    const auto lower = static_cast<char16_t>(unit | 0x20);
    return lower >= u'a' && lower <= u'f' ? lower - u'a' + 10 : -1;
}

bool IsText(std::uint32_t type)
{
    return type == TextType || type == ExpandableTextType || type == TextListType;
}

/// Whether bytes at the end of a file can be a whole value: a text needs its zeros.
bool IsWhole(std::uint32_t type, std::string_view data)
{
    const std::size_t zeros = type == TextListType ? 4 : 2;
    return !IsText(type) || (data.size() >= zeros && data.size() % 2 == 0 &&
                             data.substr(data.size() - zeros).find_first_not_of('\0') == std::string_view::npos);
}

class StoreParser {
public:
    StoreParser(StoreText text, bool isLatin1) : Text(std::move(text)), IsLatin1(isLatin1) {}

    Store Run()
    {
        IsNarrow = StartsNarrow();
        while (!AtEnd()) {
            const std::size_t start = At;
            const std::size_t first = Line;
            Pending = Change::none;
            const char* reason = ParseStatement();
            if (reason != nullptr) {
                At = start;
                Line = first;
            }
            ToNextLine();
            if (reason == nullptr)
                reason = BadCharacter(start, first);
            if (reason != nullptr)
                Result.Faults.push_back({first, std::string("the line is ignored: ") + reason});
            else
                Apply(first);
        }
        Finish();
        return std::move(Result);
    }

    /// Whether the file has the older header, with which texts in hexadecimal are narrow.
    bool isNarrow() const { return IsNarrow; }

private:
    enum class Change { none, openKey, deleteKey, setValue, deleteValue };

    bool AtEnd() const { return At >= Text.Units.size(); }
    /// The CR of CR LF is a blank.
    bool IsLineEnd(std::size_t at) const
    {
        const std::u16string& units = Text.Units;
        return at >= units.size() || units[at] == u'\n' ||
               (units[at] == u'\r' && (at + 1 == units.size() || units[at + 1] != u'\n'));
    }
    bool IsBlank(std::size_t at) const
    {
        return !IsLineEnd(at) && (Text.Units[at] == u' ' || Text.Units[at] == u'\t' || Text.Units[at] == u'\r');
    }
    char16_t Peek() const { return IsLineEnd(At) ? u'\n' : Text.Units[At]; }

    bool OnlyCommentFollows(std::size_t at) const
    {
        while (IsBlank(at))
            ++at;
        return IsLineEnd(at) || Text.Units[at] == u';';
    }

    /// Whether this text, in small ASCII letters, follows in any case.
    bool StartsWith(std::string_view lower) const
    {
        const std::u16string_view start = std::u16string_view(Text.Units).substr(At, lower.size());
        return std::equal(lower.begin(), lower.end(), start.begin(), start.end(), [](char letter, char16_t unit) {
            return unit < 0x80 && LowerAscii(static_cast<char>(unit)) == letter;
        });
    }

    bool IsLine(std::string_view lower) const { return StartsWith(lower) && OnlyCommentFollows(At + lower.size()); }

    bool Skip(std::string_view lower)
    {
        const bool isThere = StartsWith(lower);
        At += isThere ? lower.size() : 0;
        return isThere;
    }

    void SkipBlanks()
    {
        while (IsBlank(At))
            ++At;
    }

    void ToNextLine()
    {
        while (!IsLineEnd(At))
            ++At;
        At = std::min(At + 1, Text.Units.size());
        ++Line;
    }

    void SkipEmptyLines()
    {
        while (!AtEnd() && OnlyCommentFollows(At))
            ToNextLine();
    }

    bool StartsNarrow()
    {
        SkipEmptyLines();
        SkipBlanks();
        const bool isNarrow = IsLine(NarrowHeader);
        At = 0;
        Line = 1;
        return isNarrow;
    }

    const char* ParseStatement()
    {
        SkipBlanks();
        switch (Peek()) {
            case u'\n':
            case u';': return nullptr;
            case u'[': return ParseKeyLine();
            case u'@':
            case u'"': return ParseValueLine();
            default: break;
        }
        if (!IsLine(Header) && !IsLine(NarrowHeader))
            return "it is neither a key nor a value";
        HasHeader = true;
        return nullptr;
    }

    const char* ParseKeyLine()
    {
        CurrentKey.reset();
        const std::size_t end = ClosingBracket();
        if (end == std::u16string::npos)
            return "the key has no closing bracket";
        std::u16string_view path = std::u16string_view(Text.Units).substr(At + 1, end - At - 1);
        Pending = Change::openKey;
        if (path.starts_with(u'-')) {
            Pending = Change::deleteKey;
            path.remove_prefix(1);
        }
        Path.clear();
        for (const char16_t unit : path) {
            if (unit != u'\\' || !Path.ends_with(u'\\'))
                Path += unit;
        }
        if (Path.ends_with(u'\\'))
            Path.pop_back();
        const std::string root = Narrow(Path.substr(0, Path.find(u'\\')));
        for (const char* const known : {"HKEY_CLASSES_ROOT", "HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE", "HKEY_USERS"}) {
            if (EqualIgnoringCase(root, known))
                return nullptr;
        }
        return "the predefined key is unknown";
    }

    /// The first bracket that only blanks or a comment follow, or else the last one of the line.
    std::size_t ClosingBracket() const
    {
        std::size_t last = std::u16string::npos;
        for (std::size_t at = At; !IsLineEnd(at); ++at) {
            if (Text.Units[at] != u']')
                continue;
            last = at;
            if (OnlyCommentFollows(at + 1))
                break;
        }
        return last;
    }

    const char* ParseValueLine()
    {
        if (const char* const reason = ParseName(Name))
            return reason;
        if (const char* const reason = ParseData())
            return reason;
        if (!OnlyCommentFollows(At))
            return "there is text after the value";
        return CurrentKey ? nullptr : "the value belongs to no key";
    }

    const char* ParseName(std::u16string& name)
    {
        name.clear();
        if (Peek() == u'@')
            ++At;
        else if (const char* const reason = ParseQuotedName(name))
            return reason;
        SkipBlanks();
        if (Peek() != u'=')
            return "the value has no equals sign";
        ++At;
        SkipBlanks();
        return nullptr;
    }

    const char* ParseQuotedName(std::u16string& name)
    {
        for (++At; !IsLineEnd(At); ++At) {
            if (Peek() == u'"') {
                ++At;
                return nullptr;
            }
            SkipEscape();
            name += Text.Units[At];
        }
        return "the name has no closing quotation mark";
    }

    void SkipEscape()
    {
        const bool isEscape = Text.Units[At] == u'\\' && At + 1 < Text.Units.size() &&
                              (Text.Units[At + 1] == u'\\' || Text.Units[At + 1] == u'"');
        At += isEscape ? 1 : 0;
    }

    const char* ParseData()
    {
        Pending = Change::setValue;
        if (Peek() == u'"')
            return ParseText();
        if (Skip("-")) {
            Pending = Change::deleteValue;
            return nullptr;
        }
        if (Skip("dword:"))
            return ParseNumber();
        Type = BinaryType;
        if (Skip("hex:"))
            return ParseBytes();
        if (!Skip("hex("))
            return "the data of the value has no known form";
        return ParseDigits(Type) > 0 && Skip("):") ? ParseBytes() : "the type of the value is malformed";
    }

    /// Whether a key or a whole value starts here, at the start of a line inside a text.
    bool IsAtStatement()
    {
        if (StartsWith("[hkey_") || StartsWith("[-hkey_"))
            return true;
        const std::size_t start = At;
        SkipBlanks();
        std::u16string name;
        const bool isFound =
            (Peek() == u'@' || Peek() == u'"') && ParseName(name) == nullptr &&
            (Peek() == u'"' || StartsWith("-") || StartsWith("dword:") || StartsWith("hex:") || StartsWith("hex("));
        At = start;
        return isFound;
    }

    const char* ParseText()
    {
        std::u16string text;
        const std::size_t first = Line;
        for (++At; !AtEnd() && Text.Units[At] != u'"';) {
            SkipEscape();
            text += Text.Units[At];
            const bool isEnd = IsLineEnd(At++);
            Line += isEnd ? 1 : 0;
            if (isEnd && IsAtStatement())
                return Unclosed;
        }
        if (AtEnd())
            return Unclosed;
        ++At;
        if (Line != first && !OnlyCommentFollows(At))
            return Unclosed;
        text += u'\0';
        Type = TextType;
        SetData(text);
        return nullptr;
    }

    void SetData(std::u16string_view text)
    {
        Data.clear();
        for (const char16_t unit : text) {
            Data += static_cast<char>(unit & 0xFF);
            Data += static_cast<char>(unit >> 8);
        }
    }

    /// One to eight hexadecimal digits. @return how many; 0 if there are fewer or more
    std::size_t ParseDigits(std::uint32_t& number)
    {
        number = 0;
        const std::size_t start = At;
        for (; At - start < 8 && HexDigit(Peek()) >= 0; ++At)
            number = number << 4 | static_cast<std::uint32_t>(HexDigit(Peek()));
        return HexDigit(Peek()) < 0 ? At - start : 0;
    }

    const char* ParseNumber()
    {
        SkipBlanks();
        std::uint32_t number = 0;
        const std::size_t digits = ParseDigits(number);
        if (digits == 0)
            return "the number does not have one to eight digits";
        if (AtEnd() && digits < 8)
            return "the file ends inside the number";
        Type = NumberType;
        Data.clear();
        for (unsigned shift = 0; shift < 32; shift += 8)
            Data += static_cast<char>(number >> shift & 0xFF);
        return nullptr;
    }

    const char* ParseBytes()
    {
        Data.clear();
        bool isContinued = SkipContinuations();
        bool isCut = false;
        while (const std::size_t digits = ParseByte()) {
            SkipBlanks();
            isContinued = false;
            isCut = digits < 2 || Peek() == u',';
            if (Peek() != u',')
                break;
            ++At;
            isContinued = SkipContinuations();
        }
        if (isContinued)
            return "a byte is missing in the data";
        if (std::u16string text; IsNarrow && IsText(Type)) {
            if (!WidenStoreText(Data, IsLatin1, text))
                return "the text has bytes that are not in the code page";
            SetData(text);
        }
        return AtEnd() && (isCut || !IsWhole(Type, Data)) ? "the file ends inside the data" : nullptr;
    }

    /// A byte of one or two digits. @return the number of digits
    std::size_t ParseByte()
    {
        const int high = HexDigit(Peek());
        if (high < 0)
            return 0;
        ++At;
        const int low = HexDigit(Peek());
        At += low >= 0 ? 1 : 0;
        Data += static_cast<char>(low >= 0 ? high * 16 + low : high);
        return low >= 0 ? 2 : 1;
    }

    bool SkipContinuations()
    {
        bool isContinued = false;
        for (SkipBlanks(); Peek() == u'\\' && OnlyCommentFollows(At + 1); SkipBlanks()) {
            ToNextLine();
            SkipEmptyLines();
            isContinued = true;
        }
        return isContinued;
    }

    const char* BadCharacter(std::size_t start, std::size_t first) const
    {
        const auto bad = Text.BadLines.lower_bound(first);
        if (bad != Text.BadLines.end() && *bad < Line)
            return "it has bytes that are not text";
        const bool hasZero =
            std::u16string_view(Text.Units).substr(start, At - start).find(u'\0') != std::u16string::npos;
        return hasZero ? "it has a zero character" : nullptr;
    }

    void Apply(std::size_t line)
    {
        if (Pending == Change::none)
            return;
        LacksHeader = LacksHeader || !HasHeader;
        const std::string path = Narrow(Path);
        switch (Pending) {
            case Change::openKey:
                CurrentKey = path;
                Result.Keys.push_back({path, line});
                break;
            case Change::deleteKey: DeleteKey(Lower(path)); break;
            case Change::setValue: SetValue({*CurrentKey, Narrow(Name), Type, Data, line}); break;
            default: Places.erase(PlaceOf(*CurrentKey, Narrow(Name))); break;
        }
    }

    static std::string PlaceOf(std::string_view key, std::string_view name) { return Lower(key) + '\n' + Lower(name); }

    void SetValue(StoreValue value)
    {
        const auto [place, isNew] = Places.try_emplace(PlaceOf(value.Key, value.Name), Result.Values.size());
        if (!isNew) {
            const StoreValue& earlier = Result.Values[place->second];
            if (earlier.Type != value.Type || earlier.Data != value.Data)
                Result.Faults.push_back(
                    {earlier.Line, "the value has no effect: line " + std::to_string(value.Line) + " sets it again"});
            place->second = Result.Values.size();
        }
        Result.Values.push_back(std::move(value));
    }

    void DeleteKey(const std::string& lower)
    {
        const auto isIn = [&](std::string_view path) {
            return path.starts_with(lower) && (path.size() == lower.size() || path[lower.size()] == '\\');
        };
        std::erase_if(Result.Keys, [&](const StoreKey& key) { return isIn(Lower(key.Path)); });
        std::erase_if(Places, [&](const auto& place) {
            return isIn(std::string_view(place.first).substr(0, place.first.find('\n')));
        });
    }

    /// Keeps the values that count, in the order of their lines.
    void Finish()
    {
        std::vector<std::size_t> kept;
        for (const auto& place : Places)
            kept.push_back(place.second);
        std::sort(kept.begin(), kept.end());
        std::vector<StoreValue> values;
        for (const std::size_t place : kept)
            values.push_back(std::move(Result.Values[place]));
        Result.Values = std::move(values);
        if (LacksHeader)
            Result.Faults.push_back({1,
                                     "the file does not begin with \"Windows Registry Editor Version 5.00\": the "
                                     "registry editor refuses it"});
        std::stable_sort(Result.Faults.begin(), Result.Faults.end(),
                         [](const StoreFault& one, const StoreFault& other) { return one.Line < other.Line; });
    }

    const StoreText Text;
    const bool IsLatin1;
    bool IsNarrow = false;
    std::size_t At = 0;
    std::size_t Line = 1;
    bool HasHeader = false;
    bool LacksHeader = false;
    std::optional<std::string> CurrentKey;
    std::unordered_map<std::string, std::size_t> Places;  // of the values that count
    Store Result;

    // The statement that is being read.
    Change Pending = Change::none;
    std::u16string Path;
    std::u16string Name;
    std::uint32_t Type = 0;
    std::string Data;
};

}  // namespace

Store ParseStore(std::string_view bytes)
{
    StoreParser parser(DecodeStore(bytes, false), false);
    Store store = parser.Run();
    const StoreValue* const page =
        store.Find("HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage", "ACP");
    const bool isUnicode = !parser.isNarrow() || page == nullptr || TextOf(*page) == "65001";
    return isUnicode ? store : StoreParser(DecodeStore(bytes, true), true).Run();
}

}  // namespace tool
