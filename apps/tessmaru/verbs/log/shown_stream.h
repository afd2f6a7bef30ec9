// Writes a whole log for a person as fast as it can be read.
#pragma once

#include "output/output.h"
#include "records/record_reader.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace tool {

/// Gives the lines that RecordOutput gives for all entries, except that it does not cut long lines. The fields are only
/// read to see whether a line starts a record.
class ShownStream {
public:
    ShownStream(records::ByteSource& source, Output& out);

    void WriteAll();

private:
    std::u16string_view Unread() const { return {Input.data() + Begin, End - Begin}; }
    void Fill();
    void BeginLine();
    void CopyPlain();
    void WriteSpecial();
    void Append(std::string_view text);
    void FlushIfFull();

    records::ByteSource& Source;
    Output& Out;
    std::vector<char16_t> Input;
    std::size_t Begin = 0;
    std::size_t End = 0;
    bool HasHalf = false;  // the byte after `End` was read, and its other half was not
    bool IsAtEnd = false;  // of the source
    std::vector<char> Text;
    std::size_t Used = 0;
    bool IsLineBegun = false;
};

}  // namespace tool
