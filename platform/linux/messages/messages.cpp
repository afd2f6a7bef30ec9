// Formats messages: finds a template and expands its inserts.
//
// A template is expanded twice: the first pass measures, the second one writes. So a text that does not fit leaves the
// caller's buffer unchanged. Each pass reads its own copy of the caller's argument list. An intermediate text is needed
// only if the lines have a limited width.
#include "base/last_error.h"
#include "format/printf.h"
#include "messages/line_wrap.h"
#include "messages/message_table.h"
#include "messages/system_messages.h"
#include "resources/module_resources.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstring>
#include <limits>
#include <new>
#include <span>
#include <string_view>

namespace {

using layer::UnitWriter;

constexpr DWORD WidthMask = 0xFF;
constexpr std::size_t MaxInsert = 99;  // an insert's number has at most two digits
constexpr std::size_t MaxStars = 2;    // in one conversion directive: width and precision
constexpr std::size_t MaxSpecUnits = 31;
constexpr std::size_t MaxAllocatedUnits = 0x10000;  // the published limit of an allocated text, 128 KB

/// The arguments of one expansion: an array, or a va_list that is read as far as needed. They are numbered from 1 in
/// the order in which they are passed.
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

    /// Whether the caller has passed arguments.
    bool available() const { return Array != nullptr || Listed; }

    /// The argument of this number, which is at most MaxInsert.
    DWORD_PTR Get(std::size_t number)
    {
        while (Used < number)
            Next();
        return Listed ? Values[number - 1] : Array[number - 1];
    }

    /// The argument after the highest number in use, which is in use then.
    DWORD_PTR Next()
    {
        if (!Listed)
            return Array[Used++];
        const DWORD_PTR value = NextUnnumbered();
        if (Used < MaxInsert)
            Values[Used] = value;
        ++Used;
        return value;
    }

    /// The argument after the last one that was read from the list. It gets no number.
    DWORD_PTR NextUnnumbered() { return va_arg(List, DWORD_PTR); }

    /// Whether the arguments are a list.
    bool listed() const { return Listed; }

private:
    const DWORD_PTR* const Array;
    const bool Listed;
    va_list List;
    std::array<DWORD_PTR, MaxInsert> Values;  // of a list; they can be read only once
    std::size_t Used = 0;                     // the highest number in use
};

/// Expands one template. Each step returns the place in the template where the next one continues.
class Expansion {
public:
    Expansion(UnitWriter& out, DWORD flags, Inserts& inserts)
        : Out(out), Values(inserts), IgnoreInserts((flags & FORMAT_MESSAGE_IGNORE_INSERTS) != 0),
          JoinLines((flags & WidthMask) != 0)
    {
    }

    /// @return false if the template ends in a percent sign, has an invalid conversion directive, or has an insert
    ///         without arguments
    bool Run(const WCHAR* text)
    {
        while (text != nullptr && *text != 0 && !Out.overrun()) {
            if (*text == '%') {
                text = ExpandEscape(text + 1);
            } else if (*text == '\r' || *text == '\n') {
                // With a width, a line end in the template is a space; `%n` still ends a line.
                text += text[0] == '\r' && text[1] == '\n' ? 2 : 1;
                Out.Put(std::string_view(JoinLines ? " " : "\r\n"));
            } else {
                text = CopyPlainText(text);
            }
        }
        return text != nullptr;
    }

private:
    const WCHAR* CopyPlainText(const WCHAR* text)
    {
        const WCHAR* end = text;
        while (*end != 0 && *end != '%' && *end != '\r' && *end != '\n')
            ++end;
        Out.Put(layer::TextView(text, static_cast<std::size_t>(end - text)));
        return end;
    }

    /// Expands what follows a percent sign: 0 ends the text, n is a line end, r a carriage return, t a tab, a digit
    /// starts an insert, and any other character means itself.
    /// @return the place after it, or null if the template is invalid
    const WCHAR* ExpandEscape(const WCHAR* at)
    {
        static constexpr WCHAR end = 0;
        switch (*at) {
            case 0: return nullptr;
            case '0': return &end;
            case 'n': Out.Put(std::string_view("\r\n")); return at + 1;
            case 'r': Out.Put('\r'); return at + 1;
            case 't': Out.Put('\t'); return at + 1;
            default: break;
        }
        if (*at < '1' || *at > '9') {
            Out.Put(*at);
            return at + 1;
        }
        if (IgnoreInserts) {
            Out.Put('%');
            return at;
        }
        return ExpandInsert(at);
    }

    /// Expands an insert: its number, and perhaps a conversion directive between exclamation marks (else `!s!`).
    /// @return the place after it, or null if the template is invalid
    const WCHAR* ExpandInsert(const WCHAR* at)
    {
        auto number = static_cast<std::size_t>(*at++ - '0');
        if (*at >= '0' && *at <= '9')
            number = number * 10 + static_cast<std::size_t>(*at++ - '0');

        WCHAR spec[1 + MaxSpecUnits + 1] = {'%', 's', 0};
        std::size_t stars = 0;
        if (*at == '!') {
            at = ReadConversionSpec(at + 1, spec, stars);
            if (at == nullptr)
                return nullptr;
        }
        if (!Values.available())
            return nullptr;
        PutInsert(number, spec, stars);
        return at;
    }

    /// Writes an insert. If its width or precision is a star, its number is that of the first star. The second star and
    /// the value take the next arguments that have no number yet; only in a list the value itself gets no number. So
    /// the arguments 4, 2, "Bill", "Bob" belong to `%1!*.*s! %4` as an array and to `%1!*.*s! %3` as a list.
    void PutInsert(std::size_t number, const WCHAR* spec, std::size_t stars)
    {
        std::array<DWORD_PTR, MaxStars + 1> values{Values.Get(number)};
        if (stars == MaxStars)
            values[1] = Values.Next();
        if (stars > 0)
            values[stars] = Values.listed() ? Values.NextUnnumbered() : Values.Next();
        layer::FormatArguments arguments(std::span(values.data(), stars + 1));
        layer::Format(Out, spec, arguments);
    }

    /// Copies a conversion directive after the percent sign that `spec` already has.
    /// @param stars  receives the number of stars
    /// @return the place after its closing mark, or null if it is invalid
    static const WCHAR* ReadConversionSpec(const WCHAR* at, WCHAR* spec, std::size_t& stars)
    {
        std::size_t units = 0;
        for (; *at != '!'; ++at) {
            if (*at == 0 || units == MaxSpecUnits)
                return nullptr;
            if (*at == '*' && ++stars > MaxStars)
                return nullptr;
            spec[++units] = *at;
        }
        spec[units + 1] = 0;
        return units == 0 ? nullptr : at + 1;
    }

    UnitWriter& Out;
    Inserts& Values;
    const bool IgnoreInserts;
    const bool JoinLines;
};

/// Allocates room for a text. @return null if memory is exhausted
void* AllocateUnits(std::size_t units)
{
    constexpr std::size_t most = std::numeric_limits<std::size_t>::max() / sizeof(WCHAR);
    return units <= most ? LocalAlloc(0, units * sizeof(WCHAR)) : nullptr;
}

/// Writes a text into the caller's buffer or an allocated one.
/// @param render  writes the text to the writer that it is called with; returns false if the template is invalid
/// @param buffer  with FORMAT_MESSAGE_ALLOCATE_BUFFER the address of a pointer, which receives the text
/// @param size    the buffer's units, or the minimum for an allocated one
/// @return the number of units without the terminator, or 0 with the last error set
template <class Render>
DWORD Deliver(const Render& render, DWORD flags, LPWSTR buffer, DWORD size)
{
    const bool allocate = (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0;
    const std::size_t room = allocate ? MaxAllocatedUnits : size > 0 ? size - 1 : 0;
    UnitWriter measure(nullptr, room);
    if (!render(measure))
        return layer::Fail(ERROR_INVALID_PARAMETER, DWORD{0});
    if ((size == 0 && !allocate) || measure.overrun())
        return layer::Fail(allocate ? DWORD{ERROR_MORE_DATA} : DWORD{ERROR_INSUFFICIENT_BUFFER}, DWORD{0});
    if (allocate) {
        void* const allocated = AllocateUnits(std::max<std::size_t>(size, measure.used() + 1));
        if (allocated == nullptr)
            return layer::Fail(ERROR_OUTOFMEMORY, DWORD{0});
        std::memcpy(buffer, &allocated, sizeof allocated);
        buffer = static_cast<LPWSTR>(allocated);
    }
    UnitWriter out(buffer, room);
    render(out);
    buffer[out.used()] = 0;
    return static_cast<DWORD>(out.used());
}

/// Expands a template, and wraps its lines if the flags have a width other than the two without new lines.
/// @return the result of Deliver
/// @throws std::bad_alloc
DWORD FormatTemplate(const WCHAR* text, DWORD flags, LPWSTR buffer, DWORD size, va_list* arguments)
{
    const auto expand = [&](UnitWriter& out) {
        Inserts inserts(flags, arguments);
        return Expansion(out, flags, inserts).Run(text);
    };
    const DWORD width = flags & WidthMask;
    if (width == 0 || width == WidthMask)
        return Deliver(expand, flags, buffer, size);
    UnitWriter measure(nullptr, MaxAllocatedUnits);
    if (!expand(measure))
        return layer::Fail(ERROR_INVALID_PARAMETER, DWORD{0});
    if (measure.overrun())
        return layer::Fail(ERROR_MORE_DATA, DWORD{0});
    layer::Text expanded(measure.used(), WCHAR{0});
    UnitWriter whole(expanded.data(), expanded.size());
    expand(whole);
    const auto wrap = [&](UnitWriter& out) {
        layer::WrapLines(expanded, width, out);
        return true;
    };
    return Deliver(wrap, flags, buffer, size);
}

/// Expands a message from a module's message table.
/// @param units  receives the result of FormatTemplate
/// @return false with the last error set if the module has no such message
/// @throws std::bad_alloc
bool FormatModuleMessage(HINSTANCE module, DWORD message, DWORD flags, LPWSTR buffer, DWORD size, va_list* arguments,
                         DWORD& units)
{
    layer::Text text;
    const DWORD error = layer::FindMessage(layer::ModuleResources(module), message, text);
    if (error != ERROR_SUCCESS)
        return layer::Fail(error, false);
    units = FormatTemplate(text.c_str(), flags, buffer, size, arguments);
    return true;
}

/// Whether a language identifier permits English texts: its primary language is English or left open.
bool IsEnglish(DWORD language)
{
    constexpr DWORD primaryMask = 0x3FF;
    constexpr DWORD english = 9;
    return (language & primaryMask) == 0 || (language & primaryMask) == english;
}

/// Expands the sentence for a system error. A line end is added to it, as the platform's own texts have one.
/// @throws std::bad_alloc
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
try {
    constexpr DWORD sources = FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM;
    constexpr DWORD known = sources | FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS |
                            FORMAT_MESSAGE_ARGUMENT_ARRAY | WidthMask;
    const bool fromString = (flags & FORMAT_MESSAGE_FROM_STRING) != 0;
    const bool sourceNamed = fromString ? (flags & sources) == FORMAT_MESSAGE_FROM_STRING : (flags & sources) != 0;
    if ((flags & ~known) != 0 || !sourceNamed || (fromString && source == nullptr) || buffer == nullptr)
        return layer::Fail(ERROR_INVALID_PARAMETER, DWORD{0});
    // The pointer is null after every failure: callers may test it instead of the result.
    if ((flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0)
        std::memset(static_cast<void*>(buffer), 0, sizeof(LPWSTR));
    if (fromString)
        return FormatTemplate(static_cast<const WCHAR*>(source), flags, buffer, size, arguments);
    // With both sources the module comes first, and the system only if the module has no such message. A message that
    // is found but cannot be expanded is an error.
    if ((flags & FORMAT_MESSAGE_FROM_HMODULE) != 0) {
        DWORD units = 0;
        const auto module = static_cast<HINSTANCE>(const_cast<LPVOID>(source));
        if (FormatModuleMessage(module, message, flags, buffer, size, arguments, units))
            return units;
        if ((flags & FORMAT_MESSAGE_FROM_SYSTEM) == 0)
            return 0;
    }
    return FormatSystemMessage(message, flags, language, buffer, size, arguments);
} catch (const std::bad_alloc&) {
    return layer::Fail(ERROR_OUTOFMEMORY, DWORD{0});
}
