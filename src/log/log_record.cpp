// One record: its time stamp, its line, its way into the file.
#include "log/codes.h"
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/log.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace utilities {

namespace {

using TextView = std::basic_string_view<unsigned short>;

constexpr DWORD RecordWaitMilliseconds = 1000;
constexpr int MaxDateUnits = 20;
constexpr int MaxTimeUnits = 15;
constexpr std::size_t TagWidth = 4;
constexpr std::size_t SourceWidth = 12;
constexpr std::size_t IdDigits = 8;
constexpr std::size_t MillisecondDigits = 3;

// Fits every record but one with a very long source; those are built on the heap.
constexpr std::size_t UsualRecordUnits = 2048;

/// Lets go of a mutex at the end of its scope.
class Release {
public:
    explicit Release(HANDLE mutex) : Mutex(mutex) {}
    Release(const Release&) = delete;
    Release& operator=(const Release&) = delete;
    ~Release() { ReleaseMutex(Mutex); }

private:
    HANDLE Mutex;
};

/// Writes fields one behind the other into room that is known to hold them.
class LineWriter {
public:
    explicit LineWriter(unsigned short* at) : At(at) {}

    LineWriter& Put(TextView text)
    {
        At = std::copy(text.begin(), text.end(), At);
        return *this;
    }

    LineWriter& PutRight(TextView text, std::size_t width)
    {
        At = std::fill_n(At, width - std::min(width, text.size()), u' ');
        return Put(text);
    }

    LineWriter& PutId(DWORD id)
    {
        for (std::size_t i = IdDigits; i-- > 0; id >>= 4U)
            At[i] = (u"0123456789abcdef"_w)[id & 0xFU];
        At += IdDigits;
        return *this;
    }

    const unsigned short* at() const { return At; }

private:
    unsigned short* At;
};

constexpr unsigned short SeparatorUnits[] = {' ', '|', ' '};
constexpr unsigned short LineEndUnits[] = {'\r', '\n'};
constexpr TextView Separator(SeparatorUnits, std::size(SeparatorUnits));
constexpr TextView LineEnd(LineEndUnits, std::size(LineEndUnits));

void PutMilliseconds(unsigned short* digits, unsigned milliseconds)
{
    for (std::size_t i = MillisecondDigits; i-- > 0; milliseconds /= 10)
        digits[i] = static_cast<unsigned short>(u'0' + milliseconds % 10);
}

}  // namespace

LONG CLog::Log(TextView tag, TextView source, TextView text)
{
    const DWORD waited = WaitForSingleObject(LogMutex, RecordWaitMilliseconds);
    if (waited == WAIT_TIMEOUT)
        return log_codes::NotObtained;
    if (waited != WAIT_OBJECT_0 && waited != WAIT_ABANDONED)
        return log_codes::LastError();
    const Release release(LogMutex);
    if (waited == WAIT_ABANDONED)
        CutStump();
    // The high half of the position keeps the log going beyond 4 GB.
    LONG positionHigh = 0;
    if (SetFilePointer(LogFile, 0, &positionHigh, FILE_END) == INVALID_SET_FILE_POINTER && GetLastError() != NO_ERROR)
        return log_codes::LastError();
    return WriteLine(tag, source, text);
}

LONG CLog::WriteLine(TextView tag, TextView source, TextView text)
{
    if (LogFile == nullptr || LogFile == INVALID_HANDLE_VALUE)
        return 0;
    try {
        const TextView dateTime = GetDateTime();
        const std::size_t units = dateTime.size() + 2 * IdDigits + std::max(tag.size(), TagWidth) +
                                  std::max(source.size(), SourceWidth) + text.size() + 5 * Separator.size() +
                                  LineEnd.size();
        unsigned short usual[UsualRecordUnits];
        utility::wstring unusual(units > UsualRecordUnits ? units : 0, u'\0');
        unsigned short* const record = unusual.empty() ? usual : unusual.data();
        LineWriter(record)
            .Put(dateTime)
            .Put(Separator)
            .PutId(GetCurrentProcessId())
            .Put(Separator)
            .PutId(GetCurrentThreadId())
            .Put(Separator)
            .PutRight(tag, TagWidth)
            .Put(Separator)
            .PutRight(source, SourceWidth)
            .Put(Separator)
            .Put(text)
            .Put(LineEnd);
        DWORD written = 0;
        const auto bytes = static_cast<DWORD>(units * sizeof(unsigned short));
        return WriteFile(LogFile, record, bytes, &written, nullptr) ? 0 : log_codes::LastError();
    } catch (const log_exception& failure) {
        return failure.ErrorCode;
    } catch (const std::exception&) {
        return log_codes::RecordFailed;
    }
}

const utility::wstring& CLog::GetDateTime()
{
    static_assert(sizeof ShownSecond == offsetof(SYSTEMTIME, wMilliseconds));
    SYSTEMTIME now;
    GetLocalTime(&now);
    if (DateTime.empty() || std::memcmp(ShownSecond, &now, sizeof ShownSecond) != 0) {
        // A failure below leaves no second whose text would count as made.
        ShownSecond[0] = 0;
        DateTime.clear();
        unsigned short date[MaxDateUnits];
        if (GetDateFormatW(LOCALE_SYSTEM_DEFAULT, 0, &now, nullptr, platform::Wide(date), MaxDateUnits) == 0)
            throw log_exception(log_codes::LastError());
        unsigned short time[MaxTimeUnits];
        if (GetTimeFormatW(LOCALE_SYSTEM_DEFAULT, 0, &now, platform::Wide(u"HH':'mm':'ss"_w), platform::Wide(time),
                           MaxTimeUnits) == 0)
            throw log_exception(log_codes::LastError());
        DateTime += date;
        DateTime += u' ';
        DateTime += time;
        DateTime += u'.';
        DateTime.append(MillisecondDigits, u'0');
        std::memcpy(ShownSecond, &now, sizeof ShownSecond);
    }
    PutMilliseconds(DateTime.data() + DateTime.size() - MillisecondDigits, now.wMilliseconds);
    return DateTime;
}

}  // namespace utilities
