// The settings store on Linux, with files as they occur: exports, files written by hand, damaged and hostile ones.
#include "store/export_file.h"
#include "system.h"
#include "tessmaru/text.h"
#include "testkit/environment_variable.h"
#include "testkit/file_content.h"
#include "testkit/linux/without_descriptors.h"
#include "testkit/test_machine.h"
#include "testkit/utf16.h"
#include "text/case_fold.h"
#include "text/utf8.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <ctime>
#include <cwctype>
#include <optional>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

using namespace utility::literals;
using layer::RegistrySnapshot;
using layer::TextView;

namespace {

/// What `file` says about one line of an expectation: the same line with the right side that the reader finds.
class Answers {
public:
    explicit Answers(std::string_view file) : Store(layer::ReadRegistryFile(file, Report)) {}

    std::string All(const std::string& expected) const
    {
        std::istringstream lines(expected);
        std::string all;
        for (std::string line; std::getline(lines, line);) {
            const std::string question = line.substr(0, line.find(" => "));
            all += question + " => " + One(question) + "\n";
        }
        return all;
    }

private:
    std::string One(const std::string& question) const
    {
        if (question == "dropped")
            return Dropped();
        if (question == "header")
            return Report.LacksHeader ? "none" : "found";
        // A value of the key K, or `path|value`. A path that starts with a predefined key is a full one.
        const std::size_t bar = question.find('|');
        const layer::Text path = layer::FromUtf8(bar == std::string::npos ? "K" : question.substr(0, bar));
        const layer::Text name = layer::FromUtf8(bar == std::string::npos ? question : question.substr(bar + 1));
        const std::size_t hiveEnd = std::min(path.find('\\'), path.size());
        const auto hive = RegistrySnapshot::FindHive(TextView(path).substr(0, hiveEnd));
        const auto base = Store.PathOf(hive.value_or(*RegistrySnapshot::FindHive(HKEY_LOCAL_MACHINE)));
        const auto key = Store.FindKey(base, hive ? path.substr(std::min(hiveEnd + 1, path.size())) : path);
        if (!key)
            return "no key";
        const auto value = Store.FindValue(*key, name);
        return value ? Show(*value) : "none";
    }

    /// A text in UTF-8 after its type, with every line end as "/"; other values as hexadecimal bytes.
    static std::string Show(const RegistrySnapshot::Value& value)
    {
        std::string shown = std::to_string(value.Type) + ":";
        if (value.Type == REG_SZ && value.Data.size() % 2 == 0) {
            layer::Text text(value.Data.size() / 2, 0);
            std::memcpy(text.data(), value.Data.data(), value.Data.size());
            const bool terminated = !text.empty() && text.back() == 0;
            std::string narrow = layer::ToUtf8(TextView(text).substr(0, text.size() - (terminated ? 1 : 0)));
            for (std::size_t at = 0; (at = narrow.find_first_of("\r\n", at)) != std::string::npos; ++at)
                narrow.replace(at, narrow.compare(at, 2, "\r\n") == 0 ? 2 : 1, "/");
            return shown + narrow + (terminated ? "" : " (no end)");
        }
        for (const BYTE byte : value.Data) {
            char hex[4];
            std::snprintf(hex, sizeof hex, " %02x", static_cast<unsigned>(byte));
            shown += hex;
        }
        return shown;
    }

    std::string Dropped() const
    {
        std::string numbers;
        for (const auto& line : Report.Dropped)
            numbers += (numbers.empty() ? "" : " ") + std::to_string(line.Number);
        return numbers.empty() ? "-" : numbers;
    }

    layer::FileReport Report;
    RegistrySnapshot Store;
};

std::string WithLineEnds(std::string_view text, std::string_view lineEnd)
{
    std::string result;
    for (const char letter : text)
        result += letter == '\n' ? lineEnd : std::string_view(&letter, 1);
    return result;
}

std::string Utf16(std::string_view utf8)
{
    return "\xFF\xFE" + testkit::EncodeUtf16(utf8);
}

const std::string Header = "Windows Registry Editor Version 5.00\n\n";
const std::string Key = "[HKEY_LOCAL_MACHINE\\K]\n";

/// A file after the header and the line of the key K, so its first line is the fourth one. Every case is read with each
/// kind of line end and in each encoding of Unicode.
struct Shape {
    const char* Body;
    const char* Expected;
};

// clang-format off
constexpr Shape Shapes[] = {
// Names and texts.
{R"("v"="text"
"V2"="UPPER"
"v"="later"
)", R"(v => 1:later
v2 => 1:UPPER
dropped => -
)"},
{R"(@="unnamed"
"empty"=""
""="the empty name is the unnamed value"
  "indented"	=	"blanks"	
"comment"="text" ; "other"="no"
"semicolon"="a;b";c
)", R"(K| => 1:the empty name is the unnamed value
empty => 1:
indented => 1:blanks
comment => 1:text
semicolon => 1:a;b
dropped => -
)"},
{R"("a=b"="equals"
"[c]"="brackets"
";d"="semicolon"
"e\"f"="quote \"x\""
"g\\h"="C:\\temp\\"
"i\j"="C:\temp"
"@"="at"
"%PATH%"="%SystemRoot%\\x"
)", R"(a=b => 1:equals
[c] => 1:brackets
;d => 1:semicolon
e"f => 1:quote "x"
K|g\h => 1:C:\temp\
K|i\j => 1:C:\temp
@ => 1:at
%PATH% => 1:%SystemRoot%\x
dropped => -
)"},
{R"("straße"="Größe ÄÖÜ"
"ключ"="значение"
"中文"="汉字"
"𝄞"="clef 😀"
)", R"(STRAßE => 1:Größe ÄÖÜ
STRASSE => none
КЛЮЧ => 1:значение
中文 => 1:汉字
𝄞 => 1:clef 😀
dropped => -
)"},
// Texts with line ends, and texts without an end.
{R"("v"="two
lines"
"w"="an empty line

; no comment
 [HKEY_USERS] no key
 "
"x"="mail
@ = home; \"y\"=\"z\"
"
)", R"(v => 1:two/lines
w => 1:an empty line//; no comment/ [HKEY_USERS] no key/ 
x => 1:mail/@ = home; "y"="z"/
y => none
dropped => -
)"},
{R"("v"="no end
"w"="next"
@=dword:1
"x"="C:\dir\"
"y"="C:\\dir\\"
"z"="no end
@=dword:2
)", R"(v => none
w => 1:next
x => none
y => 1:C:\dir\
z => none
K| => 4: 02 00 00 00
dropped => 4 7 9
)"},
{R"("v"="no end
; a comment
free text
  @="indented"
"w"="no end
[HKEY_LOCAL_MACHINE\L]
"x"="other key"
"y"="no end
";"="a semicolon names it"
"z"="no end
[-HKEY_LOCAL_MACHINE\L]
; "
)", R"(v => none
K| => 1:indented
w => none
L|x => no key
L|; => no key
dropped => 4 6 8 11 13
)"},
{R"("v"="the file ends
here)", R"(v => none
dropped => 4 5
)"},
// Numbers.
{R"("a"=dword:00000001
"b"=DWORD:FFFFFFFF
"c"=dword:7
"d"=dword: 0000001f
"e"=Dword:abCD ; comment
"f"=dword:
"g"=dword:123456789
"h"=dword:0x12
"i"=dword:12 34
"j"=dword:-1
"k"=dword :1
"l"=dword:1,
"m"="dword:1"
)", R"(a => 4: 01 00 00 00
b => 4: ff ff ff ff
c => 4: 07 00 00 00
d => 4: 1f 00 00 00
e => 4: cd ab 00 00
f => none
m => 1:dword:1
dropped => 9 10 11 12 13 14 15
)"},
{R"("v"=dword:000012)", "v => none\ndropped => 4\n"},
{R"("v"=dword:00000012)", "v => 4: 12 00 00 00\ndropped => -\n"},
{R"("v"=dword:12 )", "v => 4: 12 00 00 00\ndropped => -\n"},
{"\"v\"=dword:000012\n", "v => 4: 12 00 00 00\ndropped => -\n"},
// Every type that an export has.
{R"("0"=hex(0):
"1"=hex(1):61,00,00,00
"2"=hex(2):25,00,78,00,25,00,00,00
"3"=hex:de,ad,be,ef
"4"=hex(4):01,00,00,00
"5"=hex(5):00,00,00,01
"6"=hex(6):61,00,00,00
"7"=hex(7):61,00,00,00,62,00,00,00,00,00
"8"=hex(8):01
"9"=hex(9):02
"a"=hex(a):03
"b"=hex(b):88,77,66,55,44,33,22,11
"big"=HEX(FFFFFFFF):00
"zero"=hex(00):05
"odd"=hex(1):61,00,62
"open"=hex(1):61,00
)", R"(0 => 0:
1 => 1:a
2 => 2: 25 00 78 00 25 00 00 00
3 => 3: de ad be ef
4 => 4: 01 00 00 00
5 => 5: 00 00 00 01
6 => 6: 61 00 00 00
7 => 7: 61 00 00 00 62 00 00 00 00 00
8 => 8: 01
9 => 9: 02
a => 10: 03
b => 11: 88 77 66 55 44 33 22 11
big => 4294967295: 00
zero => 0: 05
odd => 1: 61 00 62
open => 1:a (no end)
dropped => -
)"},
// Lists of bytes: blanks, short bytes, continuations with blank lines and comments, a comma at the end.
{R"("a"=hex: 01 , 2,	FF ; comment
"b"=hex:01,02,\
  03,04,\
    05
"c"=hex:\
  01
"d"=hex:01,\
  02,\ ; comment
  03
"e"=hex:01,\

  ; 99,\
  02
"f"=hex:01,02,
"g"=hex:01,02, ; comment
"h"=hex:
"i"=hex:\
\
  01,\
\
  02
)", R"(a => 3: 01 02 ff
b => 3: 01 02 03 04 05
c => 3: 01
d => 3: 01 02 03
e => 3: 01 02
f => 3: 01 02
g => 3: 01 02
h => 3:
i => 3: 01 02
dropped => -
)"},
{R"("a"=hex:01,,02
"b"=hex:,
"c"=hex:123
"d"=hex:0g
"e"=hex:01 02
"f"=hex:01\
  ,02
"g"=hex(:01
"h"=hex():01
"i"=hex(123456789):01
"j"=hex(x):01
"k"=hex(2)01
"l"=hex(2) :01
"m"=hex
"n"=hex:01,\
"o"="the next value"
"p"=hex:01,\

[HKEY_LOCAL_MACHINE\L]
"q"=hex:\
"r"=hex:02
)", R"(a => none
f => none
n => none
o => 1:the next value
p => none
L|q => none
L|r => 3: 02
dropped => 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 20 23
)"},
{"\"v\"=hex:01,\\ \t\n  02\n", "v => 3: 01 02\ndropped => -\n"},
{R"("v"=hex:)", "v => 3:\ndropped => -\n"},
{R"("v"=hex(0):)", "v => 0:\ndropped => -\n"},
{R"("v"=hex(2):)", "v => none\ndropped => 4\n"},
{R"("v"=hex:01,02)", "v => 3: 01 02\ndropped => -\n"},
{R"("v"=hex:01,0)", "v => none\ndropped => 4\n"},
{R"("v"=hex:01,)", "v => none\ndropped => 4\n"},
{R"("v"=hex:01,\)", "v => none\ndropped => 4\n"},
{"\"v\"=hex:01,\\\n", "v => none\ndropped => 4\n"},
{R"("v"=hex(7):61,00,00,00)", "v => none\ndropped => 4\n"},
{R"("v"=hex(7):61,00,00,00,00,00)", "v => 7: 61 00 00 00 00 00\ndropped => -\n"},
// Keys.
{R"([HKEY_LOCAL_MACHINE\A\\B\]
"v"="doubled"
[HKEY_LOCAL_MACHINE\\A\B\\\C]
"v"="more"
[hkey_Local_machine\a\b\c]
"w"="case"
[HKEY_LOCAL_MACHINE\A/B]
"v"="no separator"
  [HKEY_LOCAL_MACHINE\ D ] ; comment with ]
"v"="blanks belong to the name"
)", R"(A\B|v => 1:doubled
A\B\C|v => 1:more
A\B\C|w => 1:case
A|v => none
A/B|v => 1:no separator
 D |v => 1:blanks belong to the name
dropped => -
)"},
{R"([HKEY_LOCAL_MACHINE\[a]b=c]
"v"="brackets"
[HKEY_LOCAL_MACHINE\d] e
"v"="the text after the bracket is ignored"
[HKEY_LOCAL_MACHINE\f]g] h
"v"="the last bracket"
[HKEY_LOCAL_MACHINE\i];[j]
"v"="comment"
[HKEY_LOCAL_MACHINE\k\"l"]
"v"="quotes"
)", R"([a]b=c|v => 1:brackets
d|v => 1:the text after the bracket is ignored
f]g|v => 1:the last bracket
i|v => 1:comment
k\"l"|v => 1:quotes
dropped => -
)"},
{R"([HKEY_CLASSES_ROOT\.reg]
@="regfile"
[HKEY_CURRENT_USER\U]
@="user"
[HKEY_USERS\.DEFAULT]
@="default"
[HKEY_LOCAL_MACHINE]
@="machine"
[HKEY_LOCAL_MACHINE\]
"v"="machine too"
[HKEY_CURRENT_CONFIG\C]
"v"="not kept"
[HKLM\K]
"v"="short names of roots are not in exports"
)", R"(HKEY_CLASSES_ROOT\.reg| => 1:regfile
HKEY_CURRENT_USER\U| => 1:user
HKEY_USERS\.DEFAULT| => 1:default
HKEY_LOCAL_MACHINE| => 1:machine
HKEY_LOCAL_MACHINE|v => 1:machine too
v => none
dropped => 14 15 16 17
)"},
{R"([HKEY_LOCAL_MACHINE\A
"v"="whose?"
[]
"v"="whose?"
[\HKEY_LOCAL_MACHINE\A]
"v"="whose?"
[ HKEY_LOCAL_MACHINE\A]
"v"="whose?"
)", R"(v => none
A|v => no key
dropped => 4 5 6 7 8 9 10 11
)"},
// Deletions.
{R"("v"="text"
"w"="text"
"v"=-
@="x"
@ = - ; comment
"w"=--
"never"=-
)", R"(v => none
K| => none
w => 1:text
dropped => 9
)"},
{R"([HKEY_LOCAL_MACHINE\A\B]
"v"="gone"
[HKEY_LOCAL_MACHINE\AB]
"v"="stays"
[-HKEY_LOCAL_MACHINE\\a\]
"v"="whose?"
[-HKEY_LOCAL_MACHINE\never]
[-HKEY_NOWHERE]
[HKEY_LOCAL_MACHINE\A]
"w"="new"
)", R"(A\B|v => no key
A|w => 1:new
AB|v => 1:stays
dropped => 9 11
)"},
// Lines that are nothing.
{R"(
	
; comment
;
# not a comment
// not a comment
v="no quotes"
"v"
"v" "w"
"v"=
"v"=text
"v"='text'
"v"="text" x
"v"="text"="text"
=
]
Windows Registry Editor Version 5.00
  regedit4  
Windows Registry Editor Version 4.00
"w"="last"
)", R"(v => none
w => 1:last
dropped => 8 9 10 11 12 13 14 15 16 17 18 19 22
)"},
};
// clang-format on

TEST(RegistryImport, ShapesOfRealFiles)
{
    for (const auto& [body, expected] : Shapes) {
        for (const std::string_view lineEnd : {"\n", "\r\n", "\r"}) {
            const std::string file = WithLineEnds(Header + Key + body, lineEnd);
            for (const std::string& form : {file, "\xEF\xBB\xBF" + file, Utf16(file)})
                EXPECT_EQ(Answers(form).All(expected), WithLineEnds(expected, "\n")) << body;
        }
    }
}

TEST(RegistryImport, EncodingsOfRealFiles)
{
    using namespace std::string_literals;
    const std::string value = "\"v\"=\"text\"\n";
    const std::string page = "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage]\n\"ACP\"=\"";
    const std::string narrow = "REGEDIT4\n\n" + Key;
    const auto withPage = [&](const char* number) { return "REGEDIT4\n" + page + number + "\"\n" + Key; };
    const struct {
        std::string File;
        const char* Expected;
    } rows[] = {
        {"", "dropped => -\nheader => found\n"},
        {"; comment\n\n", "dropped => -\nheader => found\n"},
        {Key + value, "v => 1:text\ndropped => -\nheader => none\n"},
        {"no header\n" + Key + value, "v => 1:text\ndropped => 1\nheader => none\n"},
        {"; comment\n\n " + Header + Key + value, "v => 1:text\ndropped => -\nheader => found\n"},
        {Key + Header + value, "v => 1:text\ndropped => -\nheader => none\n"},
        // Marks, and texts that are cut inside a unit or a character.
        {"\xEF\xBB\xBF", "dropped => -\n"},
        {"\xFF\xFE"s, "dropped => -\n"},
        {Utf16(Header + Key + value) + "\n", "v => 1:text\ndropped => 5\n"},
        {Utf16(Header + Key + "\"v\"=\"text\"") + "\r", "v => none\ndropped => 4\n"},
        {Header + Key + value + "; \xC3", "v => 1:text\ndropped => 5\n"},
        {"\xEF\xBB\xBF" + Header + "\xEF\xBB\xBF" + Header + Key + value, "v => 1:text\ndropped => 3\n"},
        {"\xFE\xFF"s + Utf16(Header + Key + value), "v => no key\n"},
        {Utf16(Header + Key + value).substr(2), "v => no key\nheader => found\n"},
        // Bytes and units that are not text: their line goes, with CR as a line end too.
        {Header + Key + "\"v\"=\"\xFF\"\r\"w\"=\"\xED\xA0\x80\"\r\"x\"=\"ok\"\r",
         "v => none\nw => none\nx => 1:ok\ndropped => 4 5\n"},
        {Header + "[HKEY_LOCAL_MACHINE\\\xC3]\n" + value, "v => no key\ndropped => 3 4\n"},
        {Header + Key + "\"v\"=\"a\0b\"\n\"w\0\"=dword:1\n\"x\"=\"ok\"\n\0\0\0\0"s,
         "v => none\nw => none\nx => 1:ok\ndropped => 4 5 7\n"},
        {Utf16(Header + Key + "\"v\"=\"") + "\x00\xD8\"\0\n\0"s, "v => 1:\xEF\xBF\xBD\ndropped => -\n"},
        // Narrow text. Without a number of a code page it is UTF-8.
        {narrow + "\"\xC3\xA4\"=\"\xE2\x82\xAC\"\n", "ä => 1:€\ndropped => -\nheader => found\n"},
        {narrow + "\"v\"=\"\x80\"\n", "v => none\ndropped => 4\n"},
        {withPage("1252") + "\"\xE4\"=\"\x80\xE9\"\n\"x\"=hex(2):80,e9,00\n\"y\"=hex(7):e9,00,80,00,00\n"
                            "\"z\"=hex(1):e9,00\n\"b\"=hex:e9,00\n\"q\"=hex(b):e9,00\n",
         "ä => 1:€é\nÄ => 1:€é\nx => 2: ac 20 e9 00 00 00\ny => 7: e9 00 00 00 ac 20 00 00 00 00\nz => 1:é\n"
         "b => 3: e9 00\nq => 11: e9 00\ndropped => -\n"},
        {withPage("1252") + "\"v\"=\"\x81\"\n", "v => 1:\xC2\x81\ndropped => -\n"},
        {withPage("949") + "\"v\"=\"\xA2\xE8\"\n\"x\"=\"\xA2\xE8", "v => none\nx => none\ndropped => 5 6\n"},
        {withPage("28597") + "\"x\"=hex(2):ae,00\n\"y\"=\"\xAE\"\n\"z\"=\"\xD2\xFF\"\n\"v\"=\"ok\"\n",
         "x => none\ny => none\nz => none\nv => 1:ok\ndropped => 5 6 7\n"},
        // The second byte of a character may be a backslash or a bracket.
        {withPage("932") +
             "\"\x83\x5C\"=\"\x83\x5C\"\n[HKEY_LOCAL_MACHINE\\\x83\x5D]\n\"v\"=hex(2):83,5c,00\n\"w\"=\"\x83",
         "ソ => 1:ソ\nゾ|v => 2: bd 30 00 00\ndropped => 8\n"},
        {withPage("99999") + "\"v\"=\"\xC3\xA4\"\n", "v => 1:ä\ndropped => -\n"},
        {withPage("x") + "\"v\"=\"\xC3\xA4\"\n", "v => 1:ä\ndropped => -\n"},
        // A mark decides about the text, the header about the bytes.
        {Utf16(withPage("1252") + "\"v\"=\"ä\"\n\"x\"=hex(2):80,00\n"),
         "v => 1:ä\nx => 2: ac 20 00 00\ndropped => -\n"},
        {narrow + "\"v\"=hex(2):61", "v => none\ndropped => 4\n"},
        {narrow + "\"v\"=hex(2):61,00", "v => 2: 61 00 00 00\ndropped => -\n"},
        {"REGEDIT45\n" + Key + "\"v\"=hex(2):80,00\n", "v => 2: 80 00\nheader => none\ndropped => 1\n"},
    };
    for (const auto& [file, expected] : rows)
        EXPECT_EQ(Answers(file).All(expected), expected) << file;
}

// The platform folds each unit by itself, with the simple capitals of Unicode, and only pairs of letters. The final
// sigma is an exception. The C library has the same data of Unicode.
TEST(RegistryImport, NamesFoldAsUnicodePairsLetters)
{
    const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    ASSERT_NE(unicode, nullptr);
    constexpr wint_t finalSigma = 0x3C2;
    int folded = 0;
    for (wint_t unit = 0; unit <= 0xFFFF; ++unit) {
        wint_t capital = towupper_l(unit, unicode);
        if (capital > 0xFFFF || (towlower_l(capital, unicode) != unit && unit != finalSigma))
            capital = unit;
        folded += capital != unit ? 1 : 0;
        EXPECT_EQ(layer::Fold(static_cast<WCHAR>(unit)), capital) << std::hex << unit;
    }
    freelocale(unicode);
    EXPECT_GT(folded, 1100);
}

// Names made to have the same hash under common functions: with factor 33 and the case bit ignored, with a sum, and
// with the bits that no letter distinguishes. If they shared a slot, reading would take the square of their number.
TEST(RegistryImport, NamesMadeToCollideAreReadAsFastAsOthers)
{
    constexpr unsigned bits = 15;
    const auto pairs = [](unsigned number, std::string_view zero, std::string_view one) {
        std::string name;
        for (unsigned bit = 0; bit < bits; ++bit)
            name += (number >> bit & 1U) != 0 ? one : zero;
        return name;
    };
    const auto secondsFor = [&](std::string_view zero, std::string_view one, bool asKeys) {
        std::string file = Header + Key;
        for (unsigned number = 0; number < 1U << bits; ++number) {
            const std::string name = pairs(number, zero, one);
            file += asKeys ? "[HKEY_LOCAL_MACHINE\\K\\" + name + "]\n" : "\"" + name + "\"=\"\"\n";
        }
        const std::clock_t start = std::clock();
        const Answers answers(file);
        const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
        const std::string last = pairs((1U << bits) - 1, zero, one);
        EXPECT_EQ(answers.All((asKeys ? "K\\" + last + "|" : last) + " => \n"),
                  (asKeys ? "K\\" + last + "| => none\n" : last + " => 1:\n"));
        return seconds;
    };
    for (const bool asKeys : {false, true}) {
        const double ordinary = secondsFor("ab", "cd", asKeys);
        EXPECT_LT(secondsFor("A@", "B?", asKeys), 10 * ordinary + 0.2);
        EXPECT_LT(secondsFor("ad", "da", asKeys), 10 * ordinary + 0.2);
        EXPECT_LT(secondsFor("_.", "\x7F.", asKeys), 10 * ordinary + 0.2);
    }
}

// A step that starts again at each line or at each byte would take hours.
TEST(RegistryImport, HostileFilesAreReadInTime)
{
    constexpr std::size_t bytes = 1 << 18;
    for (const std::string_view part : {"\xFF", "]", "] ", "\\a", "\"", "\"v\"=\"\n", " \"v\"=\"a\\\n", "@=\"\n", "@\n",
                                        "\"v\"=hex:\\\n", "\\\n", "1,\\\n", ";\n"}) {
        for (const std::string_view start : {"[HKEY_USERS\\", "\"v\"=hex:\\\n", "\"v\"=\"", "REGEDIT4\n"}) {
            std::string file = Header + Key + std::string(start);
            while (file.size() < bytes)
                file += part;
            const std::clock_t begin = std::clock();
            const Answers answers(file);
            EXPECT_LT((std::clock() - begin) / CLOCKS_PER_SEC, 10) << start << part;
        }
    }
}

class RegistryReports : public testing::Test {
protected:
    static LSTATUS OpenKey(int times)
    {
        LSTATUS result = 0;
        for (int i = 0; i < times; ++i) {
            HKEY key = nullptr;
            result = RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"K"_w, 0, KEY_READ, &key);
            if (result == 0)
                RegCloseKey(key);
        }
        return result;
    }

    /// Opens a key `times` times. @return the debug output without the library's name and the path of the store
    std::string Read(int times = 1, bool withDescriptors = true)
    {
        testing::internal::CaptureStderr();
        Result = withDescriptors ? OpenKey(times) : testkit::WithoutDescriptors([times] { return OpenKey(times); });
        std::string output = testing::internal::GetCapturedStderr();
        const std::string start = "tessmarU: " + Machine.Settings.location() + ": ";
        for (std::size_t at = 0; (at = output.find(start)) != std::string::npos;)
            output.erase(at, start.size());
        return output;
    }

    const testkit::TestMachine Machine;
    const testkit::EnvironmentVariable Debug{"VELTRIX_DEBUG_OUTPUT", "1"};
    LSTATUS Result = 0;
};

TEST_F(RegistryReports, StoreThatCannotBeReadIsReportedOnce)
{
    std::filesystem::remove(Machine.Settings.location());
    const std::string missing = "cannot be read: No such file or directory\n";
    EXPECT_EQ(Read(3), missing);
    Machine.Settings.Set(Key);
    EXPECT_EQ(Read(3), "");
    std::filesystem::remove(Machine.Settings.location());
    EXPECT_EQ(Read(3), missing) << "it is another occasion";
    std::filesystem::create_directory(Machine.Settings.location());
    EXPECT_EQ(Read(3), "cannot be read: not a regular file\n");
    std::filesystem::remove(Machine.Settings.location());
    EXPECT_EQ(Read(3), missing);

    constexpr off_t limit = off_t{32} << 20;
    Machine.Settings.Set(Key + "; ");
    ASSERT_EQ(truncate(Machine.Settings.location().c_str(), limit + 1), 0);
    EXPECT_EQ(Read(3), "cannot be read: too large, 33554433 bytes, the limit is 33554432\n");
    EXPECT_EQ(Result, LSTATUS{ERROR_NOT_SUPPORTED});
    ASSERT_EQ(truncate(Machine.Settings.location().c_str(), limit), 0);
    usleep(50'000);  // until the file is not read at each opening
    EXPECT_EQ(Read(1), "line 4 ignored: the line has a zero character\n");
    EXPECT_EQ(Result, 0);
}

TEST_F(RegistryReports, ContentThatStaysInForceIsReportedOnce)
{
    Machine.Settings.Set(Key);
    EXPECT_EQ(Read(), "");
    Machine.Settings.Set(Key + "\"new\"=\"\"\n");
    EXPECT_EQ(Read(3, false), "cannot be read: Too many open files; the content read before stays in force\n");
    EXPECT_EQ(Result, 0);
    EXPECT_EQ(Read(3), "");
}

TEST_F(RegistryReports, FileWithoutHeaderIsReported)
{
    testkit::WriteFile(Machine.Settings.location(), Key + "\"v\"=dword:1\n\"w\"=\"no end\n\"x\"=\"y\"\nnoise\n");
    usleep(50'000);
    EXPECT_EQ(Read(3),
              "the file has no header line; it is read all the same\n"
              "line 3 ignored: the text has no closing quotation mark\n"
              "line 5 ignored: the line is neither a key nor a value\n");
}

}  // namespace
