// The text is taken off statement by statement: a statement is a line, a value with continuation lines, or a
// value whose text runs over line ends. Only a whole sound statement changes the store. Behind a broken one
// reading goes on at the next line; values behind a broken key line go with it, as nobody knows whose they are.
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

constexpr DWORD ExpandableText = 2;
constexpr DWORD TextList = 7;

/// The units of a file.
struct Units {
    TextView all() const { return {Buffer.get(), Count}; }

    std::unique_ptr<WCHAR[]> Buffer;
    std::size_t Count = 0;
    std::vector<std::uint32_t> NotUtf8;  // where bytes stood that are none, the first place of each line
};

Units FromUtf16(std::string_view bytes)
{
    Units units;
    units.Count = bytes.size() / sizeof(WCHAR);
    units.Buffer = std::make_unique_for_overwrite<WCHAR[]>(units.Count);
    if (units.Count > 0)
        std::memcpy(units.Buffer.get(), bytes.data(), units.Count * sizeof(WCHAR));
    return units;
}

Units FromUtf8(std::string_view bytes)
{
    Units units;
    units.Buffer = std::make_unique_for_overwrite<WCHAR[]>(bytes.size());
    bool reported = false;  // for this line
    for (std::size_t i = 0; i < bytes.size();) {
        if (static_cast<unsigned char>(bytes[i]) < 0x80) {
            reported = reported && bytes[i] != '\n';
            units.Buffer[units.Count++] = static_cast<unsigned char>(bytes[i++]);
            continue;
        }
        const layer::DecodedCharacter character = layer::DecodeUtf8(bytes.data() + i, bytes.size() - i);
        if (character.UnitCount == 0 && !reported) {
            units.NotUtf8.push_back(static_cast<std::uint32_t>(units.Count));
            reported = true;
        }
        // Bytes that mean nothing keep a place, so that their statement has one to be found by.
        if (character.UnitCount == 0)
            units.Buffer[units.Count++] = layer::ReplacementCharacter;
        for (unsigned unit = 0; unit < character.UnitCount; ++unit)
            units.Buffer[units.Count++] = character.Units[unit];
        i += character.ByteCount;
    }
    return units;
}

Units Decode(std::string_view file)
{
    if (file.starts_with("\xFF\xFE"))
        return FromUtf16(file.substr(2));
    return FromUtf8(file.starts_with("\xEF\xBB\xBF") ? file.substr(3) : file);
}

int HexDigit(WCHAR unit)
{
    if (unit >= '0' && unit <= '9')
        return unit - '0';
    const WCHAR capital = layer::Fold(unit);
    return capital >= 'A' && capital <= 'F' ? capital - 'A' + 10 : -1;
}

constexpr WCHAR Blanks[] = {' ', '\t', '\r', 0};

bool IsBlank(WCHAR unit)
{
    return unit == ' ' || unit == '\t' || unit == '\r';
}

/// Whether `text` starts with this, in any case. `start` has capitals only.
bool StartsWith(TextView text, std::string_view start)
{
    return text.size() >= start.size() &&
           std::equal(start.begin(), start.end(), text.begin(),
                      [](char letter, WCHAR unit) { return static_cast<WCHAR>(letter) == layer::Fold(unit); });
}

bool OpensKey(TextView line)
{
    return StartsWith(line, "[HKEY_") || StartsWith(line, "[-HKEY_");
}

/// Whether nothing that counts stands in front of the line's end.
bool OnlyComment(TextView text)
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

/// Whether these bytes can be a whole value of this type: a text ends with its terminator.
bool IsWhole(DWORD type, std::span<const BYTE> bytes)
{
    if (type != REG_SZ && type != ExpandableText && type != TextList)
        return true;
    const std::size_t zeros = (type == TextList ? 2 : 1) * sizeof(WCHAR);
    return bytes.size() >= zeros && bytes.size() % sizeof(WCHAR) == 0 &&
           std::ranges::all_of(bytes.last(zeros), [](BYTE byte) { return byte == 0; });
}

class Reader {
public:
    Reader(const Units& units, RegistrySnapshot& store, layer::DroppedLines& dropped)
        : All(units.all()), NotUtf8(units.NotUtf8), Store(store), Dropped(dropped)
    {
    }

    void Run()
    {
        while (!AtEnd()) {
            const Place start = Here;
            Wanted = Change::none;
            Onward.reset();
            const char* reason = Statement();
            if (reason != nullptr)
                Here = Onward.value_or(start);
            if (!Onward)
                ToNextLine();
            if (reason == nullptr && HasBadBytes(start.At, Here.At))
                reason = "it is not UTF-8";
            if (reason == nullptr)
                Apply();
            else
                Drop(start.Line, reason);
        }
    }

private:
    enum class Change { none, openKey, deleteKey, setValue, deleteValue };

    struct Place {
        std::size_t At = 0;
        std::size_t Line = 1;
    };

    // Each of these reads on from Here, up to the end of a line at most, and gives null or the reason why the
    // statement is dropped. What a sound one asks for is in Wanted then, and in the members that go with it.

    const char* Statement()
    {
        SkipBlanks();
        switch (Unit()) {
            case LineFeed:
            case ';': return nullptr;
            case '[': return KeyLine();
            case '@':
            case Quote: return ValueLine();
            default: break;
        }
        return StartsWith(Rest(), "WINDOWS REGISTRY EDITOR VERSION 5.00") ? nullptr : "it is neither a key nor a value";
    }

    const char* KeyLine()
    {
        Current.reset();
        const TextView line = Rest().substr(0, Rest().find(LineFeed));
        // A name may hold brackets: the closing one is that with nothing behind it.
        std::size_t end = line.find(']');
        while (end != TextView::npos && !OnlyComment(line.substr(end + 1)))
            end = line.find(']', end + 1);
        if (end == TextView::npos)
            return "the key has no closing bracket";
        Path = line.substr(1, end - 1);
        Wanted = Change::openKey;
        if (Path.starts_with(WCHAR{'-'})) {
            Wanted = Change::deleteKey;
            Path.remove_prefix(1);
        }
        if (Path.ends_with(Backslash))
            Path.remove_suffix(1);
        if (!RegistrySnapshot::FindHive(Path.substr(0, Path.find(Backslash))))
            return "there is no such predefined key";
        return HasEmptyPart(Path) ? "a part of the key's path is empty" : nullptr;
    }

    const char* ValueLine()
    {
        Name.clear();
        if (Unit() == '@')
            ++Here.At;
        else if (const char* const reason = QuotedName())
            return reason;
        SkipBlanks();
        if (Unit() != '=')
            return "the value has no equals sign";
        ++Here.At;
        SkipBlanks();
        if (const char* const reason = ValueData())
            return reason;
        if (!OnlyComment(Rest()))
            return "something stands behind the value";
        return Current ? nullptr : "the value stands below no key";
    }

    const char* QuotedName()
    {
        for (++Here.At; Unit() != LineFeed; ++Here.At) {
            if (Unit() == Quote) {
                ++Here.At;
                return nullptr;
            }
            SkipEscape();
            Name += Unit();
        }
        return "the name has no closing quotation mark";
    }

    const char* ValueData()
    {
        Wanted = Change::setValue;
        if (Unit() == Quote)
            return QuotedText();
        if (Unit() == '-') {
            Wanted = Change::deleteValue;
            ++Here.At;
            return nullptr;
        }
        if (StartsWith(Rest(), "DWORD:"))
            return Number();
        if (StartsWith(Rest(), "HEX:")) {
            Here.At += std::strlen("hex:");
            return Binary(REG_BINARY);
        }
        if (StartsWith(Rest(), "HEX("))
            return TypedBinary();
        return "the value has no data of a known form";
    }

    /// A text may run over line ends. One that nothing closes ends where the next key opens.
    const char* QuotedText()
    {
        Characters.clear();
        for (++Here.At; !AtEnd(); ++Here.At) {
            if (Unit() == Quote) {
                ++Here.At;
                Characters += WCHAR{0};
                const auto* const bytes = reinterpret_cast<const BYTE*>(Characters.data());
                SetData(REG_SZ, {bytes, Characters.size() * sizeof(WCHAR)});
                return nullptr;
            }
            SkipEscape();
            Characters += Unit();
            if (Unit() == LineFeed) {
                ++Here.Line;
                if (OpensKey(Rest().substr(1))) {
                    ++Here.At;
                    break;
                }
            }
        }
        Onward = Here;
        return "the text has no closing quotation mark";
    }

    /// Up to eight digits.
    bool HexNumber(DWORD& number)
    {
        number = 0;
        const std::size_t start = Here.At;
        for (; Here.At - start < 8 && HexDigit(Unit()) >= 0; ++Here.At)
            number = number << 4 | static_cast<DWORD>(HexDigit(Unit()));
        return Here.At > start && HexDigit(Unit()) < 0;
    }

    const char* Number()
    {
        Here.At += std::strlen("dword:");
        DWORD number = 0;
        if (!HexNumber(number))
            return "the number does not have one to eight digits";
        Bytes.resize(sizeof number);
        std::memcpy(Bytes.data(), &number, sizeof number);
        SetData(REG_DWORD, Bytes);
        return nullptr;
    }

    const char* TypedBinary()
    {
        Here.At += std::strlen("hex(");
        DWORD type = 0;
        if (!HexNumber(type) || !StartsWith(Rest(), "):"))
            return "the type of the value is malformed";
        Here.At += std::strlen("):");
        return Binary(type);
    }

    const char* Binary(DWORD type)
    {
        Bytes.clear();
        const bool isEmpty = !SkipContinuations() && !AtEnd() && HexDigit(Unit()) < 0;
        if (!isEmpty) {
            do {
                if (!TakeByte())
                    return "a byte is missing";
            } while (TakeComma());
        }
        // The file may be cut off here, and nobody is to get half a path.
        if (AtEnd() && !IsWhole(type, Bytes))
            return "the file ends within the text";
        SetData(type, Bytes);
        return nullptr;
    }

    bool TakeByte()
    {
        const int high = HexDigit(Unit());
        if (high < 0)
            return false;
        ++Here.At;
        const int low = HexDigit(Unit());
        if (low >= 0)
            ++Here.At;
        Bytes.push_back(static_cast<BYTE>(low >= 0 ? high * 16 + low : high));
        return true;
    }

    bool TakeComma()
    {
        SkipBlanks();
        if (Unit() != ',')
            return false;
        ++Here.At;
        SkipContinuations();
        return true;
    }

    void SetData(DWORD type, std::span<const BYTE> data)
    {
        Type = type;
        Data = data;
    }

    bool AtEnd() const { return Here.At >= All.size(); }
    TextView Rest() const { return All.substr(Here.At); }

    /// The unit at Here; behind the end of the file stands a line end.
    WCHAR Unit() const { return AtEnd() ? LineFeed : All[Here.At]; }

    void SkipBlanks()
    {
        while (IsBlank(Unit()))
            ++Here.At;
    }

    /// Over blanks, and to the next line where a backslash ends this one. Whether there was such a line end.
    bool SkipContinuations()
    {
        bool skipped = false;
        for (SkipBlanks(); Unit() == Backslash; SkipBlanks()) {
            const std::size_t end = Rest().find_first_not_of(Blanks, 1);
            if (end == TextView::npos || Rest()[end] != LineFeed)
                break;
            ToNextLine();
            skipped = true;
        }
        return skipped;
    }

    /// Over a backslash that takes the meaning from a quotation mark or another backslash.
    void SkipEscape()
    {
        if (Unit() == Backslash && Here.At + 1 < All.size() &&
            (All[Here.At + 1] == Backslash || All[Here.At + 1] == Quote))
            ++Here.At;
    }

    void ToNextLine()
    {
        Here.At = std::min(All.find(LineFeed, Here.At), All.size() - 1) + 1;
        ++Here.Line;
    }

    bool HasBadBytes(std::size_t from, std::size_t to) const
    {
        const auto first = std::lower_bound(NotUtf8.begin(), NotUtf8.end(), from);
        return first != NotUtf8.end() && *first < to;
    }

    void Apply()
    {
        switch (Wanted) {
            case Change::none: break;
            case Change::openKey: Current = Store.AddKey(Path); break;
            case Change::deleteKey: Store.DeleteKey(Path); break;
            case Change::setValue: Store.SetValue(*Current, Name, Type, Data); break;
            case Change::deleteValue: Store.DeleteValue(*Current, Name); break;
        }
    }

    void Drop(std::size_t line, const char* reason)
    {
        if (++Dropped.Count <= layer::DroppedLines::Limit)
            Dropped.First.push_back({line, reason});
    }

    const TextView All;
    const std::vector<std::uint32_t>& NotUtf8;
    RegistrySnapshot& Store;
    layer::DroppedLines& Dropped;

    Place Here;
    std::optional<RegistrySnapshot::Key> Current;  // the key that values belong to

    // Of the present statement.
    Change Wanted = Change::none;
    std::optional<Place> Onward;  // where to read on behind a broken one, if not at its second line
    TextView Path;
    Text Name;
    DWORD Type = REG_NONE;
    std::span<const BYTE> Data;  // in one of the next two
    Text Characters;
    std::vector<BYTE> Bytes;
};

}  // namespace

layer::RegistrySnapshot layer::ReadRegistryFile(std::string_view file, DroppedLines& dropped)
{
    RegistrySnapshot store;
    const Units units = Decode(file);
    Reader(units, store, dropped).Run();
    store.Finish();
    return store;
}
