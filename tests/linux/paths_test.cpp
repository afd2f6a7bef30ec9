// Translation of platform paths to paths of the file system.
#include "files/paths.h"
#include "testkit/test_machine.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <climits>

using namespace utility::literals;
using testkit::Wide;

namespace {

const std::string Devices =
    "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Session Manager\\DOS Devices]\r\n";

TEST(Paths, TranslateEveryForm)
{
    const testkit::TestMachine machine;
    machine.Settings.Set(Devices +
                         "\"D:\"=\"/srv/data/\"\r\n\"E:\"=\"\\\\mnt\\\\e\"\r\n\"G:\"=\"relative\"\r\n"
                         "\"H:\"=\"\"\r\n\"I:\"=dword:00000001\r\n");
    const struct {
        const unsigned short* Path;
        DWORD Error;
        std::string Translated;
    } rows[] = {
        {u"\\var\\log\\App.log"_w, 0, "/var/log/App.log"},
        {u"/var/log\\App.log"_w, 0, "/var/log/App.log"},
        {u"App.log"_w, 0, "App.log"},
        {u".\\..\\App.log"_w, 0, "./../App.log"},
        {u"/a:b/1:\\c"_w, 0, "/a:b/1:/c"},
        {u"C:\\Logs\\App.log"_w, 0, "/Logs/App.log"},
        {u"c:/Logs/App.log"_w, 0, "/Logs/App.log"},
        {u"C:"_w, 0, "/"},
        {u"C:App.log"_w, 0, "/App.log"},
        {u"D:\\App.log"_w, 0, "/srv/data/App.log"},
        {u"d:\\\\App.log"_w, 0, "/srv/data/App.log"},
        {u"E:\\a\\b"_w, 0, "/mnt/e/a/b"},
        {u"\\\\?\\D:\\App.log"_w, 0, "/srv/data/App.log"},
        {u"\\\\?\\\\var\\App.log"_w, 0, "/var/App.log"},
        {u"\\\u00e4\u4e2d\U0001D11E.log"_w, 0, "/\xC3\xA4\xE4\xB8\xAD\xF0\x9D\x84\x9E.log"},
        {u"F:\\App.log"_w, ERROR_PATH_NOT_FOUND, ""},
        {u"G:\\App.log"_w, ERROR_PATH_NOT_FOUND, ""},
        {u"H:\\App.log"_w, ERROR_PATH_NOT_FOUND, ""},
        {u"I:\\App.log"_w, ERROR_PATH_NOT_FOUND, ""},
        {u"\\\\server\\share\\App.log"_w, ERROR_BAD_NETPATH, ""},
        {u"//server/share"_w, ERROR_BAD_NETPATH, ""},
        {u"\\\\?\\UNC\\server\\share"_w, ERROR_BAD_NETPATH, ""},
        {u""_w, ERROR_PATH_NOT_FOUND, ""},
        {u"\\\\?\\"_w, ERROR_PATH_NOT_FOUND, ""},
        {nullptr, ERROR_PATH_NOT_FOUND, ""},
    };
    for (const auto& row : rows) {
        std::string translated;
        const std::string shown = row.Path == nullptr ? "null" : testkit::Narrow(row.Path);
        EXPECT_EQ(layer::TranslatePath(row.Path, translated), row.Error) << shown;
        EXPECT_EQ(translated, row.Translated) << shown;
    }
}

TEST(Paths, InvalidNamesAreRefused)
{
    for (const utility::wstring& half : {utility::wstring{'/', 0xD800, 'x'}, {'/', 0xDC00}, {'/', 0xD800}}) {
        std::string translated = "as it was";
        EXPECT_EQ(layer::TranslatePath(half.c_str(), translated), ERROR_INVALID_NAME);
        EXPECT_EQ(translated, "as it was");
    }
    const auto codeOf = [](std::size_t units, WCHAR unit) {
        std::string translated;
        return layer::TranslatePath(utility::wstring(units, unit).c_str(), translated);
    };
    EXPECT_EQ(codeOf(PATH_MAX - 1, 'x'), 0U);
    EXPECT_EQ(codeOf(PATH_MAX, 'x'), ERROR_FILENAME_EXCED_RANGE);
    EXPECT_EQ(codeOf((PATH_MAX - 1) / 3, 0x4E2D), 0U);
    EXPECT_EQ(codeOf(PATH_MAX / 3 + 1, 0x4E2D), ERROR_FILENAME_EXCED_RANGE);
}

TEST(Paths, DrivesNeedAReadableStore)
{
    const testkit::TestMachine machine;
    std::string translated;
    EXPECT_EQ(layer::TranslatePath(u"C:\\x"_w, translated), 0U) << "there is no store";
    EXPECT_EQ(translated, "/x");
    machine.Settings.Set(Devices + "\"C:\"=\"/srv/c\"\r\n");
    EXPECT_EQ(layer::TranslatePath(u"C:\\x"_w, translated), 0U);
    EXPECT_EQ(translated, "/srv/c/x");
    std::filesystem::remove(machine.Settings.location());
    std::filesystem::create_directory(machine.Settings.location());
    EXPECT_EQ(layer::TranslatePath(u"C:\\x"_w, translated), ERROR_ACCESS_DENIED);
    EXPECT_EQ(translated, "/srv/c/x");
}

}  // namespace
