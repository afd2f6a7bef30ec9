// Builds the line of a record.
#include "log/record.h"

#include "settings/tag_specification.h"
#include "tessmaru/text.h"

#include <algorithm>
#include <iterator>

using namespace utility::literals;

namespace logging {

namespace {

constexpr std::size_t TagWidth = 4;
constexpr std::size_t SourceWidth = 12;
constexpr std::size_t IdDigits = 8;

constexpr unsigned short SeparatorUnits[] = {' ', '|', ' '};
constexpr unsigned short LineEndUnits[] = {'\r', '\n'};
constexpr TextView Separator(SeparatorUnits, std::size(SeparatorUnits));
constexpr TextView LineEnd(LineEndUnits, std::size(LineEndUnits));

/// The exact length of the line, so that it is built in one pass.
std::size_t UnitsOf(TextView dateTime, TextView tag, TextView source, TextView text)
{
    return dateTime.size() + 2 * IdDigits + std::max(tag.size(), TagWidth) + std::max(source.size(), SourceWidth) +
           text.size() + 5 * Separator.size() + LineEnd.size();
}

/// Writes fields one after another into room that is known to hold them.
class LineWriter {
public:
    explicit LineWriter(unsigned short* at) : At(at) {}

    LineWriter& Put(TextView text)
    {
        At = std::copy(text.begin(), text.end(), At);
        return *this;
    }

    /// A longer text is not cut: it moves the rest of the line to the right.
    LineWriter& PutRight(TextView text, std::size_t width)
    {
        At = std::fill_n(At, width - std::min(width, text.size()), u' ');
        return Put(text);
    }

    /// In hexadecimal, with leading zeros.
    LineWriter& PutId(DWORD id)
    {
        for (std::size_t i = IdDigits; i-- > 0; id >>= 4U)
            At[i] = (u"0123456789abcdef"_w)[id & 0xFU];
        At += IdDigits;
        return *this;
    }

private:
    unsigned short* At;
};

}  // namespace

// The buffer is not cleared: the line overwrites the part that is used.
Record::Record(TextView dateTime, DWORD process, DWORD thread, TextView tag, TextView source, TextView text)
    : Units(UnitsOf(dateTime, tag, source, text)), Long(Units > UsualUnits ? Units : 0, u'\0')
{
    LineWriter(Long.empty() ? Usual : Long.data())
        .Put(dateTime)
        .Put(Separator)
        .PutId(process)
        .Put(Separator)
        .PutId(thread)
        .Put(Separator)
        .PutRight(tag, TagWidth)
        .Put(Separator)
        .PutRight(source, SourceWidth)
        .Put(Separator)
        .Put(text)
        .Put(LineEnd);
}

}  // namespace logging
