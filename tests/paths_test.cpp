#include "paths.h"
#include "support.h"

#include <gtest/gtest.h>

using namespace utility::literals;

namespace {

const std::string Devices =
    "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Session Manager\\DOS Devices]\r\n";

TEST(Paths, WindowsFormsStandForPlacesHere)
{
    const support::Machine machine;
    machine.SetRegistry(Devices + "\"D:\"=\"/srv/data/\"\r\n\"E:\"=\"\\\\mnt\\\\e\"\r\n");
    struct Case {
        const unsigned short* Path;
        DWORD Error;
        std::string Translated;
    };
    const Case cases[] = {
        {u"\\var\\log\\App.log"_w, 0, "/var/log/App.log"},
        {u"/var/log\\App.log"_w, 0, "/var/log/App.log"},
        {u"App.log"_w, 0, "App.log"},
        {u".\\App.log"_w, 0, "./App.log"},
        {u"C:\\Logs\\App.log"_w, 0, "/Logs/App.log"},
        {u"c:/Logs/App.log"_w, 0, "/Logs/App.log"},
        {u"D:\\App.log"_w, 0, "/srv/data/App.log"},
        {u"d:\\App.log"_w, 0, "/srv/data/App.log"},
        {u"E:\\a\\b"_w, 0, "/mnt/e/a/b"},
        {u"D:"_w, 0, "/srv/data/"},
        {u"\\\\?\\D:\\App.log"_w, 0, "/srv/data/App.log"},
        {u"F:\\App.log"_w, ERROR_PATH_NOT_FOUND, ""},
        {u"\\\\server\\share\\App.log"_w, ERROR_BAD_NETPATH, ""},
        {u""_w, ERROR_PATH_NOT_FOUND, ""},
        {u"\\\u00e4\u4e2d.log"_w, 0, "/\xC3\xA4\xE4\xB8\xAD.log"},
    };
    for (const Case& path : cases) {
        std::string translated;
        EXPECT_EQ(layer::TranslatePath(path.Path, translated), path.Error) << support::Narrow(path.Path);
        EXPECT_EQ(translated, path.Translated) << support::Narrow(path.Path);
    }
    const WCHAR halfPair[] = {'/', 0xD800, 'x', 0};
    const WCHAR otherHalf[] = {'/', 0xDC00, 0};
    std::string translated;
    EXPECT_EQ(layer::TranslatePath(halfPair, translated), ERROR_INVALID_NAME);
    EXPECT_EQ(layer::TranslatePath(otherHalf, translated), ERROR_INVALID_NAME);
    EXPECT_EQ(layer::TranslatePath(utility::wstring(5000, u'x').c_str(), translated), ERROR_FILENAME_EXCED_RANGE);
    EXPECT_EQ(layer::TranslatePath(utility::wstring(4000, u'\u4e2d').c_str(), translated), ERROR_FILENAME_EXCED_RANGE);
    EXPECT_EQ(layer::TranslatePath(utility::wstring(4000, u'x').c_str(), translated), 0U);
}

TEST(Paths, StoreThatCannotBeReadMapsNoDriveElsewhere)
{
    const support::Machine machine;
    std::string translated;
    EXPECT_EQ(layer::TranslatePath(u"C:\\x"_w, translated), 0U) << "there is no store";
    EXPECT_EQ(translated, "/x");
    std::filesystem::create_directory(machine.Store);
    EXPECT_EQ(layer::TranslatePath(u"C:\\x"_w, translated), ERROR_ACCESS_DENIED);
}

}  // namespace
