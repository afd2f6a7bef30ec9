// Message templates are expanded twice, first to measure and then to write, so a text that does not fit leaves
// the buffer alone and nothing is allocated. The arguments are fetched once, each when it is first needed.
#include "base/last_error.h"
#include "format/printf.h"
#include "messages/message_table.h"
#include "messages/system_messages.h"
#include "resources/module_resources.h"

#include <array>
#include <cstring>
#include <new>

namespace {

using layer::UnitWriter;

constexpr DWORD WidthMask = 0xFF;
constexpr std::size_t MaxInsert = 99;
constexpr std::size_t MaxStars = 2;  // in one picture: its width and its precision
constexpr std::size_t MaxPictureUnits = 31;
constexpr std::size_t MaxAllocatedUnits = 0x8000;

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
    const bool allocate = (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0;
    Inserts inserts(flags, arguments);
    const std::size_t room = allocate ? MaxAllocatedUnits - 1 : size > 0 ? size - 1 : 0;
    UnitWriter measure(nullptr, room);
    if (!Expansion(measure, flags, inserts).Run(text))
        return layer::Fail(ERROR_INVALID_PARAMETER, DWORD{0});
    if ((size == 0 && !allocate) || measure.overrun())
        return layer::Fail(ERROR_INSUFFICIENT_BUFFER, DWORD{0});
    if (allocate) {
        void* const made = LocalAlloc(0, std::max<std::size_t>(size, measure.used() + 1) * sizeof(WCHAR));
        if (made == nullptr)
            return layer::Fail(ERROR_OUTOFMEMORY, DWORD{0});
        std::memcpy(buffer, &made, sizeof made);
        buffer = static_cast<LPWSTR>(made);
    }
    UnitWriter out(buffer, room);
    Expansion(out, flags, inserts).Run(text);
    buffer[out.used()] = 0;
    return static_cast<DWORD>(out.used());
}

/// Expands the text of a message that a module has.
/// @return false if there is none, with the reason as last error.
bool FormatModuleMessage(HINSTANCE module, DWORD message, DWORD flags, LPWSTR buffer, DWORD size, va_list* arguments,
                         DWORD& units)
try {
    layer::Text text;
    const DWORD error = layer::FindMessage(layer::ModuleResources(module), message, text);
    if (error != ERROR_SUCCESS)
        return layer::Fail(error, false);
    units = FormatTemplate(text.c_str(), flags, buffer, size, arguments);
    return true;
} catch (const std::bad_alloc&) {
    return layer::Fail(ERROR_OUTOFMEMORY, false);
}

bool IsEnglish(DWORD language)
{
    constexpr DWORD primaryMask = 0x3FF;
    constexpr DWORD english = 9;
    return (language & primaryMask) == 0 || (language & primaryMask) == english;
}

DWORD FormatSystemMessage(DWORD message, DWORD flags, DWORD language, LPWSTR buffer, DWORD size, va_list* arguments)
{
    const std::string_view sentence = layer::SystemMessage(message);
    WCHAR text[256]{};
    if (sentence.empty() || sentence.size() + 2 >= std::size(text))
        return layer::Fail(ERROR_MR_MID_NOT_FOUND, DWORD{0});
    if (!IsEnglish(language))
        return layer::Fail(ERROR_RESOURCE_LANG_NOT_FOUND, DWORD{0});
    UnitWriter line(text, std::size(text) - 1);
    line.Put(sentence);
    line.Put(std::string_view("\r\n"));
    return FormatTemplate(text, flags, buffer, size, arguments);
}

}  // namespace

DWORD FormatMessageW(DWORD flags, LPCVOID source, DWORD message, DWORD language, LPWSTR buffer, DWORD size,
                     va_list* arguments)
{
    constexpr DWORD sources = FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM;
    constexpr DWORD known = sources | FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS |
                            FORMAT_MESSAGE_ARGUMENT_ARRAY | WidthMask;
    const bool fromString = (flags & FORMAT_MESSAGE_FROM_STRING) != 0;
    const bool sourceNamed = fromString ? (flags & sources) == FORMAT_MESSAGE_FROM_STRING : (flags & sources) != 0;
    if ((flags & ~known) != 0 || !sourceNamed || (fromString && source == nullptr) || buffer == nullptr)
        return layer::Fail(ERROR_INVALID_PARAMETER, DWORD{0});
    if ((flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0)
        std::memset(static_cast<void*>(buffer), 0, sizeof(LPWSTR));
    if (fromString)
        return FormatTemplate(static_cast<const WCHAR*>(source), flags, buffer, size, arguments);
    if ((flags & FORMAT_MESSAGE_FROM_HMODULE) != 0) {
        DWORD units = 0;
        const auto module = static_cast<HINSTANCE>(const_cast<LPVOID>(source));
        if (FormatModuleMessage(module, message, flags, buffer, size, arguments, units))
            return units;
        if ((flags & FORMAT_MESSAGE_FROM_SYSTEM) == 0)
            return 0;
    }
    return FormatSystemMessage(message, flags, language, buffer, size, arguments);
}
