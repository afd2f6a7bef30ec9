// Parses the file of the settings store. The file is first decoded to 16-bit units and then parsed statement by
// statement: a statement is a line, a value with continuation lines, or a value whose text contains line ends. A
// statement changes the store only when all of it is well-formed. After a malformed one parsing resumes at the next
// line. The values after a malformed key line are dropped with it, because their key is not known.
#include "store/export_file.h"

#include "text/case_fold.h"
#include "text/utf8.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace {

using layer::RegistrySnapshot;
using layer::Text;
using layer::TextView;

constexpr WCHAR LineFeed = '\n';
constexpr WCHAR Backslash = '\\';
constexpr WCHAR Quote = '"';

constexpr DWORD ExpandableText = 2;  // REG_EXPAND_SZ
constexpr DWORD TextList = 7;        // REG_MULTI_SZ

/// A file as 16-bit units.
struct DecodedFile {
    TextView all() const { return {Buffer.get(), Count}; }

    std::unique_ptr<WCHAR[]> Buffer;
    std::size_t Count = 0;
    std::vector<std::uint32_t>
        MalformedOffsets;  // offsets of bytes that are not UTF-8, the first one of each line only
};

DecodedFile FromUtf16(std::string_view bytes)
{
    DecodedFile decoded;
    decoded.Count = bytes.size() / sizeof(WCHAR);  // an odd byte at the end is dropped
    decoded.Buffer = std::make_unique_for_overwrite<WCHAR[]>(decoded.Count);
    if (decoded.Count > 0)
        std::memcpy(decoded.Buffer.get(), bytes.data(), decoded.Count * sizeof(WCHAR));
    return decoded;
}

DecodedFile FromUtf8(std::string_view bytes)
{
    DecodedFile decoded;
    decoded.Buffer = std::make_unique_for_overwrite<WCHAR[]>(bytes.size());  // no character has more units than bytes
    bool recorded = false;                                                   // whether this line has an offset
    for (std::size_t i = 0; i < bytes.size();) {
        if (static_cast<unsigned char>(bytes[i]) < 0x80) {
            recorded = recorded && bytes[i] != '\n';
            decoded.Buffer[decoded.Count++] = static_cast<unsigned char>(bytes[i++]);
            continue;
        }
        const layer::DecodedCharacter character = layer::DecodeUtf8(bytes.data() + i, bytes.size() - i);
        if (character.UnitCount == 0 && !recorded) {
            decoded.MalformedOffsets.push_back(static_cast<std::uint32_t>(decoded.Count));
            recorded = true;
        }
        // Malformed bytes become a unit too, so that their offset lies inside the statement that contains them.
        if (character.UnitCount == 0)
            decoded.Buffer[decoded.Count++] = layer::ReplacementCharacter;
        for (unsigned unit = 0; unit < character.UnitCount; ++unit)
            decoded.Buffer[decoded.Count++] = character.Units[unit];
        i += character.ByteCount;
    }
    return decoded;
}

/// Decodes a file by its byte-order mark; without one it is UTF-8.
DecodedFile Decode(std::string_view file)
{
    if (file.starts_with("\xFF\xFE"))
        return FromUtf16(file.substr(2));
    return FromUtf8(file.starts_with("\xEF\xBB\xBF") ? file.substr(3) : file);
}

/// @return the value of a hexadecimal digit, -1 for any other unit
int HexDigit(WCHAR unit)
{
    if (unit >= '0' && unit <= '9')
        return unit - '0';
    const WCHAR capital = layer::Fold(unit);
    return capital >= 'A' && capital <= 'F' ? capital - 'A' + 10 : -1;
}

// Carriage returns count as blanks, so that lines may end in either form.
constexpr WCHAR Blanks[] = {' ', '\t', '\r', 0};

bool IsBlank(WCHAR unit)
{
    return unit == ' ' || unit == '\t' || unit == '\r';
}

/// Compares without case. @param start in capitals
bool StartsWith(TextView text, std::string_view start)
{
    return text.size() >= start.size() &&
           std::equal(start.begin(), start.end(), text.begin(),
                      [](char letter, WCHAR unit) { return static_cast<WCHAR>(letter) == layer::Fold(unit); });
}

bool StartsKeyLine(TextView line)
{
    return StartsWith(line, "[HKEY_") || StartsWith(line, "[-HKEY_");
}

/// Whether the line has only blanks or a comment up to its end.
bool IsBlankOrComment(TextView text)
{
    const auto first = std::find_if_not(text.begin(), text.end(), IsBlank);
    return first == text.end() || *first == LineFeed || *first == ';';
}

bool HasEmptyPart(TextView path)
{
    for (std::size_t i = path.find(Backslash); i != TextView::npos; i = path.find(Backslash, i + 1)) {
        if (i + 1 == path.size() || path[i + 1] == Backslash)
            return true;
    }
    return false;
}

/// Whether these bytes can be a complete value of this type. Texts must have their terminator, other types may have any
/// size.
bool IsComplete(DWORD type, std::span<const BYTE> bytes)
{
    if (type != REG_SZ && type != ExpandableText && type != TextList)
        return true;
    const std::size_t zeros = (type == TextList ? 2 : 1) * sizeof(WCHAR);
    return bytes.size() >= zeros && bytes.size() % sizeof(WCHAR) == 0 &&
           std::ranges::all_of(bytes.last(zeros), [](BYTE byte) { return byte == 0; });
}

/// Parses a decoded file into a store.
///
/// Each Parse function reads from Position up to the end of a line at most. It returns null, or the reason why the
/// statement is malformed. The functions only record the change that the statement makes, in Pending and the members
/// after it; Run applies the change once the whole statement is known to be well-formed.
class ExportReader {
public:
    ExportReader(const DecodedFile& decoded, RegistrySnapshot& store, layer::DroppedLines& dropped)
        : All(decoded.all()), MalformedOffsets(decoded.MalformedOffsets), Store(store), Dropped(dropped)
    {
    }

    void Run()
    {
        while (!AtEnd()) {
            const TextPosition start = Position;
            Pending = Change::none;
            ResumeAt.reset();
            const char* reason = ParseStatement();
            // A malformed statement loses its first line only: parsing resumes at its second line.
            if (reason != nullptr)
                Position = ResumeAt.value_or(start);
            if (!ResumeAt)
                ToNextLine();
            if (reason == nullptr && HasMalformedBytes(start.Offset, Position.Offset))
                reason = "the line is not UTF-8";
            if (reason == nullptr)
                Apply();
            else
                Drop(start.Line, reason);
        }
    }

private:
    enum class Change { none, openKey, deleteKey, setValue, deleteValue };

    struct TextPosition {
        std::size_t Offset = 0;
        std::size_t Line = 1;
    };

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
        return StartsWith(Rest(), "WINDOWS REGISTRY EDITOR VERSION 5.00") ? nullptr
                                                                          : "the line is neither a key nor a value";
    }

    const char* ParseKeyLine()
    {
        CurrentKey.reset();  // a malformed key line too ends the values of the key before it
        const TextView line = Rest().substr(0, Rest().find(LineFeed));
        // A key's name may contain brackets. The closing bracket is the first one that only a comment follows.
        std::size_t end = line.find(']');
        while (end != TextView::npos && !IsBlankOrComment(line.substr(end + 1)))
            end = line.find(']', end + 1);
        if (end == TextView::npos)
            return "the key has no closing bracket";
        Path = line.substr(1, end - 1);
        Pending = Change::openKey;
        if (Path.starts_with(WCHAR{'-'})) {
            Pending = Change::deleteKey;
            Path.remove_prefix(1);
        }
        if (Path.ends_with(Backslash))
            Path.remove_suffix(1);
        if (!RegistrySnapshot::FindHive(Path.substr(0, Path.find(Backslash))))
            return "the predefined key is unknown";
        return HasEmptyPart(Path) ? "the path of the key has an empty part" : nullptr;
    }

    const char* ParseValueLine()
    {
        Name.clear();
        if (Peek() == '@')
            ++Position.Offset;
        else if (const char* const reason = ParseQuotedName())
            return reason;
        SkipBlanks();
        if (Peek() != '=')
            return "the value has no equals sign";
        ++Position.Offset;
        SkipBlanks();
        if (const char* const reason = ParseValueData())
            return reason;
        if (!IsBlankOrComment(Rest()))
            return "there is text after the value";
        return CurrentKey ? nullptr : "the value belongs to no key";
    }

    const char* ParseQuotedName()
    {
        for (++Position.Offset; Peek() != LineFeed; ++Position.Offset) {
            if (Peek() == Quote) {
                ++Position.Offset;
                return nullptr;
            }
            SkipEscape();
            Name += Peek();
        }
        return "the name has no closing quotation mark";
    }

    const char* ParseValueData()
    {
        Pending = Change::setValue;
        if (Peek() == Quote)
            return ParseQuotedText();
        if (Peek() == '-') {
            Pending = Change::deleteValue;
            ++Position.Offset;
            return nullptr;
        }
        if (StartsWith(Rest(), "DWORD:"))
            return ParseNumber();
        if (StartsWith(Rest(), "HEX:")) {
            Position.Offset += std::strlen("hex:");
            return ParseBinary(REG_BINARY);
        }
        if (StartsWith(Rest(), "HEX("))
            return ParseTypedBinary();
        return "the data of the value has no known form";
    }

    /// A text may contain line ends. One without a closing quotation mark is dropped up to the next key line, because
    /// all lines up to there may belong to it.
    const char* ParseQuotedText()
    {
        Characters.clear();
        for (++Position.Offset; !AtEnd(); ++Position.Offset) {
            if (Peek() == Quote) {
                ++Position.Offset;
                Characters += WCHAR{0};
                const auto* const bytes = reinterpret_cast<const BYTE*>(Characters.data());
                SetData(REG_SZ, {bytes, Characters.size() * sizeof(WCHAR)});
                return nullptr;
            }
            SkipEscape();
            Characters += Peek();
            if (Peek() == LineFeed) {
                ++Position.Line;
                if (StartsKeyLine(Rest().substr(1))) {
                    ++Position.Offset;
                    break;
                }
            }
        }
        ResumeAt = Position;
        return "the text has no closing quotation mark";
    }

    /// Parses one to eight digits. @return false if there are fewer or more
    bool ParseHexNumber(DWORD& number)
    {
        number = 0;
        const std::size_t start = Position.Offset;
        for (; Position.Offset - start < 8 && HexDigit(Peek()) >= 0; ++Position.Offset)
            number = number << 4 | static_cast<DWORD>(HexDigit(Peek()));
        return Position.Offset > start && HexDigit(Peek()) < 0;
    }

    const char* ParseNumber()
    {
        Position.Offset += std::strlen("dword:");
        DWORD number = 0;
        if (!ParseHexNumber(number))
            return "the number does not have one to eight digits";
        Bytes.resize(sizeof number);
        std::memcpy(Bytes.data(), &number, sizeof number);
        SetData(REG_DWORD, Bytes);
        return nullptr;
    }

    const char* ParseTypedBinary()
    {
        Position.Offset += std::strlen("hex(");
        DWORD type = 0;
        if (!ParseHexNumber(type) || !StartsWith(Rest(), "):"))
            return "the type of the value is malformed";
        Position.Offset += std::strlen("):");
        return ParseBinary(type);
    }

    const char* ParseBinary(DWORD type)
    {
        Bytes.clear();
        // `hex:` alone is an empty value. After a continuation, and at the end of the file, a byte must follow.
        const bool isEmpty = !SkipContinuations() && !AtEnd() && HexDigit(Peek()) < 0;
        if (!isEmpty) {
            do {
                if (!ParseByte())
                    return "a byte is missing in the data";
            } while (SkipComma());
        }
        // The file may have been cut off at this point. Half a text, such as half a path, must not be used.
        if (AtEnd() && !IsComplete(type, Bytes))
            return "the file ends inside the text";
        SetData(type, Bytes);
        return nullptr;
    }

    /// Parses a byte of one or two digits. @return false if there is no digit
    bool ParseByte()
    {
        const int high = HexDigit(Peek());
        if (high < 0)
            return false;
        ++Position.Offset;
        const int low = HexDigit(Peek());
        if (low >= 0)
            ++Position.Offset;
        Bytes.push_back(static_cast<BYTE>(low >= 0 ? high * 16 + low : high));
        return true;
    }

    /// Skips a comma and the continuation after it. @return false if there is no comma
    bool SkipComma()
    {
        SkipBlanks();
        if (Peek() != ',')
            return false;
        ++Position.Offset;
        SkipContinuations();
        return true;
    }

    void SetData(DWORD type, std::span<const BYTE> data)
    {
        Type = type;
        Data = data;
    }

    bool AtEnd() const { return Position.Offset >= All.size(); }
    TextView Rest() const { return All.substr(Position.Offset); }

    /// The unit at Position. The end of the file reads as a line end, so that no caller needs a second test.
    WCHAR Peek() const { return AtEnd() ? LineFeed : All[Position.Offset]; }

    void SkipBlanks()
    {
        while (IsBlank(Peek()))
            ++Position.Offset;
    }

    /// Skips blanks, and continues on the next line if a backslash ends this one. @return whether a line was continued
    bool SkipContinuations()
    {
        bool skipped = false;
        for (SkipBlanks(); Peek() == Backslash; SkipBlanks()) {
            const std::size_t end = Rest().find_first_not_of(Blanks, 1);
            if (end == TextView::npos || Rest()[end] != LineFeed)
                break;
            ToNextLine();
            skipped = true;
        }
        return skipped;
    }

    /// Skips a backslash that escapes a quotation mark or another backslash. Any other backslash is an ordinary unit.
    void SkipEscape()
    {
        if (Peek() == Backslash && Position.Offset + 1 < All.size() &&
            (All[Position.Offset + 1] == Backslash || All[Position.Offset + 1] == Quote))
            ++Position.Offset;
    }

    void ToNextLine()
    {
        Position.Offset = std::min(All.find(LineFeed, Position.Offset), All.size() - 1) + 1;
        ++Position.Line;
    }

    bool HasMalformedBytes(std::size_t from, std::size_t to) const
    {
        const auto first = std::lower_bound(MalformedOffsets.begin(), MalformedOffsets.end(), from);
        return first != MalformedOffsets.end() && *first < to;
    }

    void Apply()
    {
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
        if (++Dropped.Count <= layer::DroppedLines::Limit)
            Dropped.First.push_back({line, reason});
    }

    const TextView All;
    const std::vector<std::uint32_t>& MalformedOffsets;
    RegistrySnapshot& Store;
    layer::DroppedLines& Dropped;

    TextPosition Position;
    std::optional<RegistrySnapshot::Key> CurrentKey;  // the key to which the values belong

    // The statement that is being parsed.
    Change Pending = Change::none;
    std::optional<TextPosition> ResumeAt;  // where to resume after a malformed statement, if not at its second line
    TextView Path;
    Text Name;
    DWORD Type = REG_NONE;
    std::span<const BYTE> Data;  // refers to one of the next two
    Text Characters;
    std::vector<BYTE> Bytes;
};

}  // namespace

layer::RegistrySnapshot layer::ReadRegistryFile(std::string_view file, DroppedLines& dropped)
{
    RegistrySnapshot store;
    const DecodedFile decoded = Decode(file);
    ExportReader(decoded, store, dropped).Run();
    store.Finish();
    return store;
}
