// Message templates are expanded twice, first to measure and then to write, so a text that does not fit leaves
// the buffer alone and nothing is allocated. The arguments are fetched once, each when it is first needed.
#include "text_format.h"

#include <array>

namespace {

using layer::UnitWriter;

constexpr DWORD WidthMask = 0xFF;
constexpr std::size_t MaxInsert = 99;
constexpr std::size_t MaxStars = 2;  // in one picture: its width and its precision
constexpr std::size_t MaxPictureUnits = 31;

/// The inserts of one call, fetched up to the highest number asked for.
class Inserts {
public:
    Inserts(DWORD flags, va_list* arguments)
        : Array((flags & FORMAT_MESSAGE_ARGUMENT_ARRAY) != 0 ? reinterpret_cast<const DWORD_PTR*>(arguments) : nullptr),
          Listed(Array == nullptr && arguments != nullptr)
    {
        if (Listed)
            va_copy(List, *arguments);
    }
    Inserts(const Inserts&) = delete;
    Inserts& operator=(const Inserts&) = delete;
    ~Inserts()
    {
        if (Listed)
            va_end(List);
    }

    bool given() const { return Array != nullptr || Listed; }

    /// `count` inserts from number `first` (1 is the first of all) on.
    std::span<const DWORD_PTR> From(std::size_t first, std::size_t count)
    {
        for (; Fetched < first - 1 + count; ++Fetched)
            Values[Fetched] = Listed ? va_arg(List, DWORD_PTR) : Array[Fetched];
        return {Values.data() + first - 1, count};
    }

private:
    const DWORD_PTR* const Array;
    const bool Listed;
    va_list List;
    std::array<DWORD_PTR, MaxInsert + MaxStars> Values;
    std::size_t Fetched = 0;
};

/// Expands one template. Every step moves on in it.
class Expansion {
public:
    Expansion(UnitWriter& out, DWORD flags, Inserts& inserts)
        : Out(out), Values(inserts), KeepInserts((flags & FORMAT_MESSAGE_IGNORE_INSERTS) != 0),
          JoinLines((flags & WidthMask) == WidthMask)
    {
    }

    /// @return false if the template cannot be expanded: a bad picture, or inserts that nobody gave.
    bool Run(const WCHAR* text)
    {
        while (text != nullptr && *text != 0 && !Out.overrun()) {
            if (*text == '%') {
                text = Escape(text + 1);
            } else if (*text == '\r' || *text == '\n') {
                text += text[0] == '\r' && text[1] == '\n' ? 2 : 1;
                Out.Put(std::string_view(JoinLines ? " " : "\r\n"));
            } else {
                text = Plain(text);
            }
        }
        return text != nullptr;
    }

private:
    const WCHAR* Plain(const WCHAR* text)
    {
        const WCHAR* end = text;
        while (*end != 0 && *end != '%' && *end != '\r' && *end != '\n')
            ++end;
        Out.Put(layer::TextView(text, static_cast<std::size_t>(end - text)));
        return end;
    }

    /// What stands behind a percent sign. @return where the template goes on, null if it is bad.
    const WCHAR* Escape(const WCHAR* at)
    {
        static constexpr WCHAR end = 0;
        switch (*at) {
            case 0: return at;
            case '0': return &end;
            case 'n': Out.Put(std::string_view("\r\n")); return at + 1;
            case 'r': Out.Put('\r'); return at + 1;
            default: break;
        }
        if (*at < '1' || *at > '9') {
            Out.Put(*at);
            return at + 1;
        }
        if (KeepInserts) {
            Out.Put('%');
            return at;
        }
        return Insert(at);
    }

    const WCHAR* Insert(const WCHAR* at)
    {
        auto number = static_cast<std::size_t>(*at++ - '0');
        if (*at >= '0' && *at <= '9')
            number = number * 10 + static_cast<std::size_t>(*at++ - '0');

        WCHAR picture[1 + MaxPictureUnits + 1] = {'%', 's', 0};
        std::size_t stars = 0;
        if (*at == '!') {
            at = ReadPicture(at + 1, picture, stars);
            if (at == nullptr)
                return nullptr;
        }
        if (!Values.given())
            return nullptr;
        layer::FormatArguments arguments(Values.From(number, 1 + stars));
        layer::Format(Out, picture, arguments);
        return at;
    }

    /// Copies a picture behind its percent sign. @return what stands behind its closing mark, or null.
    static const WCHAR* ReadPicture(const WCHAR* at, WCHAR* picture, std::size_t& stars)
    {
        std::size_t units = 0;
        for (; *at != '!'; ++at) {
            if (*at == 0 || units == MaxPictureUnits)
                return nullptr;
            if (*at == '*' && ++stars > MaxStars)
                return nullptr;
            picture[++units] = *at;
        }
        picture[units + 1] = 0;
        return units == 0 ? nullptr : at + 1;
    }

    UnitWriter& Out;
    Inserts& Values;
    const bool KeepInserts;
    const bool JoinLines;
};

DWORD FormatTemplate(const WCHAR* text, DWORD flags, LPWSTR buffer, DWORD size, va_list* arguments)
{
    Inserts inserts(flags, arguments);
    const std::size_t room = size > 0 ? size - 1 : 0;
    UnitWriter measure(nullptr, room);
    if (!Expansion(measure, flags, inserts).Run(text))
        return layer::Fail(ERROR_INVALID_PARAMETER, DWORD{0});
    if (size == 0 || measure.overrun())
        return layer::Fail(ERROR_INSUFFICIENT_BUFFER, DWORD{0});
    UnitWriter out(buffer, room);
    Expansion(out, flags, inserts).Run(text);
    buffer[out.used()] = 0;
    return static_cast<DWORD>(out.used());
}

}  // namespace

DWORD FormatMessageW(DWORD flags, LPCVOID source, DWORD, DWORD, LPWSTR buffer, DWORD size, va_list* arguments)
{
    constexpr DWORD known =
        FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_ARGUMENT_ARRAY | WidthMask;
    if ((flags & ~known) != 0 || (flags & FORMAT_MESSAGE_FROM_STRING) == 0 || source == nullptr || buffer == nullptr)
        return layer::Fail(ERROR_INVALID_PARAMETER, DWORD{0});
    return FormatTemplate(static_cast<const WCHAR*>(source), flags, buffer, size, arguments);
}
