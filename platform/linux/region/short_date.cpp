// Determines the format picture of a short date. It is a property of the machine and not of a process: it comes from
// the store and from the configuration files of the machine's locale, never from the locale variables of its
// environment, so that all processes write dates of the same form into a shared log.
#include "region/short_date.h"

#include "base/descriptor.h"
#include "store/machine_value.h"
#include "tessmaru/text.h"
#include "text/unit_writer.h"
#include "text/utf8.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <fcntl.h>
#include <langinfo.h>

namespace {

using namespace utility::literals;
using layer::DatePicture;
using layer::LookupResult;

// The cache is written once, by the thread that moves its state from `vacant` to `filling`. Other threads may read it
// only when the state is `filled`. No thread waits: one that comes too early uses its own result.
enum class CacheState : int { vacant, filling, filled };
std::atomic<CacheState> cacheState{CacheState::vacant};
DatePicture cachedPicture;

constexpr DatePicture DefaultPicture = {'y', 'y', 'y', 'y', '-', 'M', 'M', '-', 'd', 'd', 0};

/// Classifies the failure to open a file or a locale: it does not exist, or it is only unavailable this time.
LookupResult ResultFromErrno(int error)
{
    return error == ENOMEM || error == EMFILE || error == ENFILE ? LookupResult::unavailable : LookupResult::missing;
}

/// Reads the beginning of a file. @param content receives the part of `buffer` that was filled
template <std::size_t N>
LookupResult ReadStart(const char* path, std::array<char, N>& buffer, std::string_view& content)
{
    const layer::Descriptor file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file)
        return ResultFromErrno(errno);
    const ssize_t bytes = read(file.get(), buffer.data(), N);
    content = {buffer.data(), bytes > 0 ? static_cast<std::size_t>(bytes) : 0};
    return LookupResult::found;
}

bool IsUtf8(locale_t locale)
{
    return std::string_view(nl_langinfo_l(CODESET, locale)) == "UTF-8";
}

bool IsAscii(std::string_view text)
{
    return std::ranges::all_of(text, [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

/// Translates the date format of a locale. The format is not converted, so a locale of another encoding than UTF-8 is
/// used only if its format is ASCII.
LookupResult ReadLocale(std::string_view name, DatePicture& picture)
{
    char terminated[64]{};
    if (name.empty() || name.size() >= sizeof terminated)
        return LookupResult::missing;
    name.copy(terminated, name.size());
    errno = 0;
    const locale_t locale = newlocale(LC_ALL_MASK, terminated, nullptr);
    if (locale == nullptr)
        return ResultFromErrno(errno);
    const char* const format = nl_langinfo_l(D_FMT, locale);
    const bool translated = (IsUtf8(locale) || IsAscii(format)) && layer::TranslateDatePicture(format, picture);
    freelocale(locale);
    return translated ? LookupResult::found : LookupResult::missing;
}

/// Reads the locale of the machine from the files in which distributions configure it. The first file that sets one
/// counts.
LookupResult ReadMachineLocale(DatePicture& picture)
{
    std::array<char, 4096> content;
    for (const char* const path : {"/etc/locale.conf", "/etc/default/locale"}) {
        std::string_view file;
        if (ReadStart(path, content, file) == LookupResult::unavailable)
            return LookupResult::unavailable;
        const std::string_view name = layer::TimeLocaleOf(file);
        if (!name.empty())
            return ReadLocale(name, picture);
    }
    return LookupResult::missing;
}

LookupResult ReadStore(DatePicture& picture)
{
    const LookupResult result =
        layer::ReadMachineText(HKEY_USERS, u".DEFAULT\\Control Panel\\International"_w, u"sShortDate"_w, picture);
    // An empty value counts as none.
    return result == LookupResult::found && picture[0] == 0 ? LookupResult::missing : result;
}

/// Translates a conversion of `strftime`, without its percent sign, to a field of a date picture.
/// @return null if there is no such field
const char* PictureFieldOf(std::string_view conversion)
{
    struct Entry {
        std::string_view Conversion;
        const char* Field;
    };
    static constexpr Entry fields[] = {{"d", "dd"},       {"e", "d"},          {"-d", "d"}, {"a", "ddd"},
                                       {"A", "dddd"},     {"m", "MM"},         {"-m", "M"}, {"b", "MMM"},
                                       {"h", "MMM"},      {"B", "MMMM"},       {"y", "yy"}, {"Y", "yyyy"},
                                       {"D", "MM/dd/yy"}, {"F", "yyyy-MM-dd"}, {"%", "%"}};
    for (const Entry& entry : fields) {
        if (entry.Conversion == conversion)
            return entry.Field;
    }
    return nullptr;
}

/// Writes a date picture. Literal text that would be read as a field is put in single quotation marks.
class PictureWriter {
public:
    explicit PictureWriter(DatePicture& picture) : Out(picture.data(), picture.size() - 1) {}

    void PutField(const char* field)
    {
        SetQuoted(false);
        Out.Put(std::string_view(field));
    }

    /// Writes a character that means itself. A quotation mark is doubled.
    void PutLiteral(const layer::DecodedCharacter& character)
    {
        const WCHAR unit = character.Units[0];
        SetQuoted((unit >= 'a' && unit <= 'z') || (unit >= 'A' && unit <= 'Z') || unit == '\'');
        if (unit == '\'')
            Out.Put(unit);
        Out.Put(layer::TextView(character.Units, character.UnitCount));
    }

    /// Ends the picture. @return false if it did not fit or is empty
    bool Finish()
    {
        SetQuoted(false);
        return !Out.overrun() && Out.used() > 0;
    }

private:
    void SetQuoted(bool quoted)
    {
        if (quoted != Quoted)
            Out.Put('\'');
        Quoted = quoted;
    }

    layer::UnitWriter Out;
    bool Quoted = false;
};

}  // namespace

namespace layer {

DatePicture ShortDatePicture()
{
    if (cacheState.load(std::memory_order_acquire) == CacheState::filled)
        return cachedPicture;
    DatePicture picture{};
    LookupResult result = ReadStore(picture);
    if (result == LookupResult::missing)
        result = ReadMachineLocale(picture);
    if (result != LookupResult::found)
        picture = DefaultPicture;
    // A default that was used because the store or the locale is unavailable is not cached.
    CacheState expected = CacheState::vacant;
    if (result != LookupResult::unavailable && cacheState.compare_exchange_strong(expected, CacheState::filling)) {
        cachedPicture = picture;
        cacheState.store(CacheState::filled, std::memory_order_release);
    }
    return picture;
}

bool TranslateDatePicture(const char* strftimeFormat, DatePicture& picture)
{
    picture.fill(0);
    PictureWriter writer(picture);
    for (const char* at = strftimeFormat; *at != 0;) {
        if (*at != '%') {
            const DecodedCharacter character = DecodeUtf8(at, std::strlen(at));
            if (character.UnitCount == 0)
                return false;
            writer.PutLiteral(character);
            at += character.ByteCount;
            continue;
        }
        // The flag `-` is an extension of the C library: no leading zero.
        const std::size_t length = at[1] == '-' ? 2 : 1;
        const char* const field = PictureFieldOf({at + 1, strnlen(at + 1, length)});
        if (field == nullptr)
            return false;
        writer.PutField(field);
        at += 1 + length;
    }
    return writer.Finish();
}

std::string_view TimeLocaleOf(std::string_view file)
{
    std::string_view time;
    std::string_view language;
    while (!file.empty()) {
        const std::size_t end = std::min(file.find('\n'), file.size());
        std::string_view line = file.substr(0, end);
        file.remove_prefix(std::min(end + 1, file.size()));
        // The value of the line if it sets this variable, without the quotation marks that shells allow around it.
        const auto valueOf = [&](std::string_view name) {
            if (!line.starts_with(name))
                return std::string_view{};
            std::string_view value = line.substr(name.size());
            while (!value.empty() && (value.front() == '"' || value.front() == '\''))
                value.remove_prefix(1);
            return value.substr(0, value.find_first_of("\"' \t\r"));
        };
        if (const std::string_view value = valueOf("LC_TIME="); !value.empty())
            time = value;
        if (const std::string_view value = valueOf("LANG="); !value.empty())
            language = value;
    }
    return !time.empty() ? time : language;
}

}  // namespace layer
