// Parses the file of the settings store. The file is first decoded to 16-bit units and then parsed statement by
// statement: a statement is a line, a value with continuation lines, or a value whose text contains line ends. A
// statement changes the store only when all of it is well-formed. After a malformed one parsing resumes at the next
// line. The values after a malformed key line are dropped with it, because their key is not known.
#include "store/export_file.h"

#include "store/code_page_value.h"
#include "store/file_text.h"
#include "store/key_path.h"
#include "store/line_scanner.h"
#include "text/case_fold.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>

namespace {

using layer::FileText;
using layer::RegistrySnapshot;
using layer::Text;
using layer::TextView;

constexpr WCHAR LineFeed = '\n';
constexpr WCHAR Backslash = '\\';
constexpr WCHAR Quote = '"';

constexpr DWORD ExpandableText = 2;  // REG_EXPAND_SZ
constexpr DWORD TextList = 7;        // REG_MULTI_SZ

constexpr std::string_view Header = "WINDOWS REGISTRY EDITOR VERSION 5.00";
constexpr std::string_view NarrowHeader = "REGEDIT4";

constexpr const char* Unclosed = "the text has no closing quotation mark";

/// @return the value of a hexadecimal digit, -1 for any other unit
int HexDigit(WCHAR unit)
{
    if (unit >= '0' && unit <= '9')
        return unit - '0';
    const WCHAR capital = layer::Fold(unit);
    return capital >= 'A' && capital <= 'F' ? capital - 'A' + 10 : -1;
}

/// Whether values of this type are texts, which an export with the header REGEDIT4 has as narrow bytes.
bool IsText(DWORD type)
{
    return type == REG_SZ || type == ExpandableText || type == TextList;
}

/// Whether these bytes can be a complete value of this type. Texts must have their terminator, other types may have any
/// size.
bool IsComplete(DWORD type, std::span<const BYTE> bytes)
{
    if (!IsText(type))
        return true;
    const std::size_t zeros = (type == TextList ? 2 : 1) * sizeof(WCHAR);
    return bytes.size() >= zeros && bytes.size() % sizeof(WCHAR) == 0 &&
           std::ranges::all_of(bytes.last(zeros), [](BYTE byte) { return byte == 0; });
}

/// Parses a decoded file into a store.
///
/// Each Parse function reads from the position up to the end of a line at most. It returns null, or the reason why the
/// statement is malformed. The functions only record the change that the statement makes, in Pending and the members
/// after it; Run applies the change once the whole statement is known to be well-formed.
class ExportReader : private layer::LineScanner {
public:
    /// @param narrow decodes the bytes of texts; null if they are UTF-16
    ExportReader(const FileText& file, layer::NarrowDecoder* narrow, RegistrySnapshot& store, layer::FileReport& report)
        : LineScanner(file.all()), File(file), Narrow(narrow), Store(store), Report(report)
    {
    }

    void Run()
    {
        while (!AtEnd()) {
            const LineScanner start = *this;
            Pending = Change::none;
            const char* reason = ParseStatement();
            // A malformed statement loses its first line only: parsing resumes at its second line.
            if (reason != nullptr)
                Rewind(start);
            ToNextLine();
            if (reason == nullptr)
                reason = FindBadCharacter(start.Offset);
            if (reason == nullptr)
                Apply();
            else
                Drop(start.Line, reason);
        }
    }

private:
    enum class Change { none, openKey, deleteKey, setValue, deleteValue };

    void Rewind(const LineScanner& start) { LineScanner::operator=(start); }

    const char* ParseStatement()
    {
        SkipBlanks();
        switch (Peek()) {
            case LineFeed:
            case ';': return nullptr;
            case '[': return ParseKeyLine();
            case '@':
            case Quote: return ParseValueLine();
            default: break;
        }
        // Header lines are allowed anywhere, because files are made by joining exports.
        if (!IsLine(Header) && !IsLine(NarrowHeader))
            return "the line is neither a key nor a value";
        HeaderSeen = true;
        return nullptr;
    }

    const char* ParseKeyLine()
    {
        CurrentKey.reset();  // a malformed key line too ends the values of the key before it
        const std::size_t end = FindClosingBracket();
        if (end == TextView::npos)
            return "the key has no closing bracket";
        Path = All.substr(Offset + 1, end - Offset - 1);
        Pending = Change::openKey;
        if (Path.starts_with(WCHAR{'-'})) {
            Pending = Change::deleteKey;
            Path.remove_prefix(1);
        }
        Path = layer::NormalizePath(Path, PathStorage);
        if (!RegistrySnapshot::FindHive(Path.substr(0, Path.find(layer::PathSeparator))))
            return "the predefined key is unknown";
        if (Pending == Change::deleteKey && Path.find(layer::PathSeparator) == TextView::npos)
            return "a predefined key cannot be removed";
        return nullptr;
    }

    /// Finds the bracket that closes a key's name, which may contain brackets: the first one that only blanks or a
    /// comment follow. If there is none, the last one of the line counts, and the text after it is ignored.
    std::size_t FindClosingBracket() const
    {
        std::size_t last = TextView::npos;
        for (std::size_t at = Offset; !IsLineEnd(at); ++at) {
            if (All[at] != ']')
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
        if (const char* const reason = ParseValueData())
            return reason;
        if (!OnlyCommentFollows(Offset))
            return "there is text after the value";
        return CurrentKey ? nullptr : "the value belongs to no key";
    }

    /// Parses up to the data: the name, and the equals sign with the blanks around it.
    const char* ParseName(Text& name)
    {
        name.clear();
        if (Peek() == '@')
            ++Offset;
        else if (const char* const reason = ParseQuotedName(name))
            return reason;
        SkipBlanks();
        if (Peek() != '=')
            return "the value has no equals sign";
        ++Offset;
        SkipBlanks();
        return nullptr;
    }

    const char* ParseQuotedName(Text& name)
    {
        for (++Offset; !IsLineEnd(Offset); ++Offset) {
            if (Peek() == Quote) {
                ++Offset;
                return nullptr;
            }
            SkipEscape();
            name += All[Offset];
        }
        return "the name has no closing quotation mark";
    }

    const char* ParseValueData()
    {
        Pending = Change::setValue;
        if (Peek() == Quote)
            return ParseQuotedText();
        if (Skip("-")) {
            Pending = Change::deleteValue;
            return nullptr;
        }
        if (Skip("DWORD:"))
            return ParseNumber();
        if (Skip("HEX:"))
            return ParseBinary(REG_BINARY);
        if (Skip("HEX("))
            return ParseTypedBinary();
        return "the data of the value has no known form";
    }

    /// Whether a statement starts at the position, the start of a line. Used inside texts, so all of `"name"=` and the
    /// start of the data must be there.
    bool IsAtStatement()
    {
        if (StartsWith("[HKEY_") || StartsWith("[-HKEY_"))
            return true;
        const LineScanner start = *this;
        SkipBlanks();
        bool found = false;
        if (Peek() == '@' || Peek() == Quote) {
            Text name;
            found = ParseName(name) == nullptr && (Peek() == Quote || StartsWith("-") || StartsWith("DWORD:") ||
                                                   StartsWith("HEX:") || StartsWith("HEX("));
        }
        Rewind(start);
        return found;
    }

    /// A text may contain line ends. A text that is not closed before the next statement loses its first line only: the
    /// lines after it are parsed by themselves.
    const char* ParseQuotedText()
    {
        Characters.clear();
        const std::size_t firstLine = Line;
        for (++Offset; !AtEnd() && All[Offset] != Quote;) {
            SkipEscape();
            Characters += All[Offset];
            const bool lineEnds = IsLineEnd(Offset++);
            Line += lineEnds ? 1 : 0;
            if (lineEnds && IsAtStatement())
                return Unclosed;
        }
        if (AtEnd())
            return Unclosed;
        ++Offset;
        // The quotation mark that follows an unclosed text usually opens the name of the next value.
        if (Line != firstLine && !OnlyCommentFollows(Offset))
            return Unclosed;
        Characters += WCHAR{0};
        SetTextData(REG_SZ);
        return nullptr;
    }

    /// Parses one to eight digits. @return false if there are fewer or more
    bool ParseHexNumber(DWORD& number)
    {
        number = 0;
        const std::size_t start = Offset;
        for (; Offset - start < 8 && HexDigit(Peek()) >= 0; ++Offset)
            number = number << 4 | static_cast<DWORD>(HexDigit(Peek()));
        return Offset > start && HexDigit(Peek()) < 0;
    }

    const char* ParseNumber()
    {
        SkipBlanks();
        const std::size_t start = Offset;
        DWORD number = 0;
        if (!ParseHexNumber(number))
            return "the number does not have one to eight digits";
        // The file may have been cut off at this point. Exports have all eight digits.
        if (AtEnd() && Offset - start < 8)
            return "the file ends inside the number";
        Bytes.resize(sizeof number);
        std::memcpy(Bytes.data(), &number, sizeof number);
        SetData(REG_DWORD, Bytes);
        return nullptr;
    }

    const char* ParseTypedBinary()
    {
        DWORD type = 0;
        if (!ParseHexNumber(type) || !Skip("):"))
            return "the type of the value is malformed";
        return ParseBinary(type);
    }

    const char* ParseBinary(DWORD type)
    {
        Bytes.clear();
        bool continued = SkipContinuations();
        bool isCut = false;  // if the file ends here
        while (const std::size_t digits = ParseByte()) {
            SkipBlanks();
            continued = false;
            isCut = digits < 2 || Peek() == ',';
            if (Peek() != ',')
                break;
            ++Offset;
            continued = SkipContinuations();
        }
        // A comma may end the list, but a line that is to be continued promises a byte.
        if (continued)
            return "a byte is missing in the data";
        if (Narrow != nullptr && IsText(type)) {
            if (!WidenBytes())
                return "the text has bytes that are not in the code page";
            SetTextData(type);
        } else {
            SetData(type, Bytes);
        }
        // The file may have been cut off at this point. Half a text, such as half a path, must not be used.
        if (AtEnd() && (isCut || !IsComplete(type, Data)))
            return "the file ends inside the data";
        return nullptr;
    }

    /// Parses a byte of one or two digits. @return the number of digits
    std::size_t ParseByte()
    {
        const int high = HexDigit(Peek());
        if (high < 0)
            return 0;
        ++Offset;
        const int low = HexDigit(Peek());
        if (low >= 0)
            ++Offset;
        Bytes.push_back(static_cast<BYTE>(low >= 0 ? high * 16 + low : high));
        return low >= 0 ? 2 : 1;
    }

    /// Decodes Bytes to Characters. @return false if they are not text
    bool WidenBytes()
    {
        const FileText wide = Narrow->Decode({reinterpret_cast<const char*>(Bytes.data()), Bytes.size()});
        Characters = wide.all();
        return !wide.HasMalformedBytes(0, wide.Count);
    }

    void SetData(DWORD type, std::span<const BYTE> data)
    {
        Type = type;
        Data = data;
    }

    /// Sets Characters as the data.
    void SetTextData(DWORD type)
    {
        SetData(type, {reinterpret_cast<const BYTE*>(Characters.data()), Characters.size() * sizeof(WCHAR)});
    }

    /// Skips blanks. If a backslash ends the line, continues on the next line that is not blank or a comment.
    /// @return whether a line was continued
    bool SkipContinuations()
    {
        bool skipped = false;
        for (SkipBlanks(); Peek() == Backslash && OnlyCommentFollows(Offset + 1); SkipBlanks()) {
            ToNextLine();
            SkipEmptyLines();
            skipped = true;
        }
        return skipped;
    }

    /// Skips a backslash that escapes a quotation mark or another backslash. Any other backslash is an ordinary unit.
    void SkipEscape()
    {
        if (All[Offset] == Backslash && Offset + 1 < All.size() &&
            (All[Offset + 1] == Backslash || All[Offset + 1] == Quote))
            ++Offset;
    }

    /// The reason why the lines from `start` to the position cannot be used although they are well-formed, or null.
    const char* FindBadCharacter(std::size_t start) const
    {
        if (File.HasMalformedBytes(start, Offset))
            return "the line has bytes that are not text";
        if (All.substr(start, Offset - start).find(WCHAR{0}) != TextView::npos)
            return "the line has a zero character";
        return nullptr;
    }

    void Apply()
    {
        Report.LacksHeader = Report.LacksHeader || (Pending != Change::none && !HeaderSeen);
        switch (Pending) {
            case Change::none: break;
            case Change::openKey: CurrentKey = Store.AddKey(Path); break;
            case Change::deleteKey: Store.DeleteKey(Path); break;
            case Change::setValue: Store.SetValue(*CurrentKey, Name, Type, Data); break;
            case Change::deleteValue: Store.DeleteValue(*CurrentKey, Name); break;
        }
    }

    /// Records a dropped statement. The list is limited: a file of random bytes may have millions of them.
    void Drop(std::size_t line, const char* reason)
    {
        if (++Report.DroppedCount <= layer::FileReport::Limit)
            Report.Dropped.push_back({line, reason});
    }

    const FileText& File;
    layer::NarrowDecoder* const Narrow;
    RegistrySnapshot& Store;
    layer::FileReport& Report;

    bool HeaderSeen = false;
    std::optional<RegistrySnapshot::Key> CurrentKey;  // the key to which the values belong

    // The statement that is being parsed.
    Change Pending = Change::none;
    TextView Path;
    Text PathStorage;
    Text Name;
    DWORD Type = REG_NONE;
    std::span<const BYTE> Data;  // refers to one of the next two
    Text Characters;
    std::vector<BYTE> Bytes;
};

/// Parses a decoded file. @param narrow as for ExportReader
RegistrySnapshot Parse(const FileText& file, layer::NarrowDecoder* narrow, layer::FileReport& report)
{
    RegistrySnapshot store;
    ExportReader(file, narrow, store, report).Run();
    store.Finish();
    return store;
}

/// The active code page according to the store itself, UTF-8 if it has none.
UINT CodePageOf(const RegistrySnapshot& store)
{
    const auto hive = store.PathOf(*RegistrySnapshot::FindHive(HKEY_LOCAL_MACHINE));
    const auto key = store.FindKey(hive, layer::CodePageKey);
    const auto value = key ? store.FindValue(*key, layer::CodePageName) : std::nullopt;
    if (!value || value->Data.size() % sizeof(WCHAR) != 0)
        return CP_UTF8;
    Text text(value->Data.size() / sizeof(WCHAR), WCHAR{0});
    std::memcpy(text.data(), value->Data.data(), value->Data.size());
    return layer::ParseCodePage(text.c_str());
}

}  // namespace

layer::RegistrySnapshot layer::ReadRegistryFile(std::string_view file, FileReport& report)
{
    FileText text = DecodeByMark(file);
    LineScanner start(text.all());
    start.SkipEmptyLines();
    start.SkipBlanks();
    if (!start.IsLine(NarrowHeader))
        return Parse(text, nullptr, report);
    // The number of the code page is ASCII, so it is found before the page is known. It is not read through the store,
    // because the store is this file.
    FileReport ignored;
    NarrowDecoder narrow(CodePageOf(Parse(text, nullptr, ignored)));
    if (!HasMark(file))
        text = narrow.Decode(file);
    return Parse(text, &narrow, report);
}
