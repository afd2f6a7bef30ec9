// Reads a log from front to back, record by record, in bounded memory.
#pragma once

#include "records/record.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace records {

/// Where the bytes of a log come from.
class ByteSource {
public:
    virtual ~ByteSource() = default;

    /// Reads up to `bytes` bytes. @return how many; 0 at the end, after which more may follow if the log grows
    virtual std::size_t Read(void* buffer, std::size_t bytes) = 0;
};

/// A record, or text that belongs to none.
struct Entry {
    enum class Kind {
        record,       // `Fields` is complete, except that `Text` may go on in entries of the kind `continuation`
        continuation  // lines without fields: the rest of a long text, a stump, or what is no log at all
    };

    Kind What = Kind::record;
    Record Fields;             // of a continuation, only `Text` and `Line`
    std::uint64_t Offset = 0;  // of the first byte in the log
    bool IsEnded = true;       // false: no line end follows: after a kill, in the middle of an append, or after a cut
};

/// Which entries are given at the end of the log, where more may be written at any time.
enum class AtEnd {
    all,         // what is there, with or without a line end
    endedLines,  // lines that have their end
    complete     // only an entry that another record follows, so that its text cannot go on
};

/// Reads entries. The views of an entry are valid until the next call.
///
/// A record ends where another one starts, or at the end of the log. A text of more than `Longest` units is given in
/// pieces, so that a damaged log needs no more memory than a sound one.
class RecordReader {
public:
    static constexpr std::size_t Longest = 64 * 1024;

    /// @param offset the place in the log at which `source` starts: the start of a record
    explicit RecordReader(ByteSource& source, std::uint64_t offset = 0);

    /// The next entry; nothing at the end of the log. A later call goes on there if the log has grown.
    std::optional<Entry> Next(AtEnd last = AtEnd::all);

    /// Skips records that have none of the texts, without reading their fields. It may leave some of them.
    void SkipToAny(const std::vector<std::u16string>& texts);

    /// Forgets what was read in advance. The source goes on at `offset`.
    void Restart(std::uint64_t offset);

    /// The offset after the last entry.
    std::uint64_t offset() const { return Offset; }

    /// The units that were read and belong to no entry yet, and half a unit that may follow them.
    bool HasRest() const { return Begin != End || HasHalf; }

private:
    std::u16string_view Unread() const { return {Buffer.data() + Begin, End - Begin}; }
    bool Fill();
    std::size_t LastStartBefore(std::size_t place) const;
    std::optional<std::size_t> EndOfLine(std::size_t from);
    std::optional<std::size_t> EndOfEntry(std::size_t from, AtEnd last);
    Entry Take(std::size_t length, bool isEnded, std::optional<Record> fields);

    ByteSource& Source;
    std::uint64_t Offset;
    std::vector<char16_t> Buffer;
    std::size_t Begin = 0;
    std::size_t End = 0;
    bool HasHalf = false;           // the byte after `End` was read, and its other half was not
    std::optional<Record> Pending;  // the fields of the line at `Begin`, if they were read already
};

}  // namespace records
