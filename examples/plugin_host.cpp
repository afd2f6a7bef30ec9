// Example of a plug-in: a service loads it, logs its version, and logs the plug-in's own texts. For another wording or
// another release, only the plug-in's resources change.
//
//     plugin_host [plug-in]
#include "tessmaru/errors.h"
#include "tessmaru/log.h"
#include "tessmaru/primitives.h"
#include "tessmaru/settings.h"
#include "tessmaru/version.h"

#include "plugin/site_import.h"
#include "plugin/site_import_rows.h"
#include "testkit/loaded_module.h"
#include "testkit/log_printer.h"
#include "testkit/paths.h"
#include "testkit/program.h"
#include "testkit/scratch_folder.h"
#include "testkit/settings_store.h"
#include "veltrix_settings.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

using namespace utility::literals;
using utilities::CLog;
using utility::CVersionInfo;

namespace {

/// A row of a module's string table with its inserts, whose types must be those that the row names.
utility::wstring TextOf(HINSTANCE module, unsigned int row, ...)
{
    va_list inserts;
    va_start(inserts, row);
    utility::wstring text = utility::genStringFromResourceModule(module, row, &inserts);
    va_end(inserts);
    return text;
}

void LogVersion(CLog& log, const CVersionInfo& version)
{
    constexpr unsigned short english = 0x0409;
    constexpr unsigned short unicode = 0x04B0;
    const auto text = [&](CVersionInfo::eLANG_VER_INFO value) {
        return version.getVersionInfoLanguageValue(value, english, unicode);
    };
    log.LogInfo(u"%s %s (file version %s)"_w, u"Host"_w, text(CVersionInfo::eLANG_PRODUCT_NAME).c_str(),
                text(CVersionInfo::eLANG_FILE_VERSION).c_str(),
                version.getVersionInfoFixedValue(CVersionInfo::eFIXED_FILE_VERSION).c_str());
}

void Serve(const std::filesystem::path& file)
{
    CLog* const log = CLog::GetInstance();
    if (log == nullptr)
        throw std::runtime_error("the log cannot be opened");
    const utility::CStopWatch watch;
    const testkit::LoadedModule plugin(file);
    CVersionInfo version;
    version.setModule(plugin.Module());
    LogVersion(*log, version);
    const utility::wstring name =
        version.getVersionInfoLanguageValue(CVersionInfo::eLANG_INTERNAL_NAME, 0x0409, 0x04B0);

    const auto readSites = plugin.Find<decltype(ReadSites)>("ReadSites");
    const struct {
        const char* Region;
        const unsigned short* Shown;
    } regions[] = {{"North", u"North"_w}, {"Coast", u"Coast"_w}};
    for (const auto& region : regions) {
        const auto write = [&](const utility::wstring& text) { log->LogInfo(u"%s"_w, u"Import"_w, text.c_str()); };
        write(TextOf(plugin.Module(), ROW_BEGINS, name.c_str(), region.Shown));
        const SitesRead read = readSites(region.Region);
        write(TextOf(plugin.Module(), ROW_READ, read.All, region.Shown, read.New, read.Changed));
    }
    log->LogStatus(u"done after %s"_w, u"Host"_w, watch.strElapsedTime().c_str());
    utility::LogProcessModules(log);
}

}  // namespace

int main(int count, char** arguments)
try {
    const std::vector<std::string> words = testkit::Arguments(count, arguments);
    // The settings and the log of this run, in a scratch folder.
    const testkit::ScratchFolder scratch;
    const testkit::SettingsStore settings(scratch);
    settings.Set(VeltrixSettings);
    const utility::wstring path = CSettingsRegistry().getLogPath();
    const std::filesystem::path log = settings.PlaceLog({path.begin(), path.end()});
    Serve(words.empty() ? testkit::ThisProgram().replace_filename(SITE_IMPORT_FILE) : testkit::FromUtf8(words[0]));
    testkit::PrintLog(log);
    return EXIT_SUCCESS;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "plugin_host: %s\n", failure.what());
    return EXIT_FAILURE;
}
