// Measures the read of a setting from a store that does not change. The floor is one stat of the store, without which
// no reader notices a change.
#include "rows.h"

#include "tessmaru/settings.h"

#include <sys/stat.h>

namespace bench {
namespace {

Comparison CompareRead(const Plan& plan, const std::filesystem::path& store)
{
    const CSettingsRegistry settings;
    if (settings.getUDPPortNumber() != 0x2328)
        throw std::runtime_error("the store is not read");
    const std::string path = store.string();
    const auto statCall = [&path](unsigned) {
        struct stat status {};
        Use(stat(path.c_str(), &status));
    };
    return Compare([&](unsigned) { Use(settings.getUDPPortNumber()); }, statCall, plan.Calls / 10, plan.Rounds);
}

}  // namespace

void MeasureSettings(const Plan& plan, const testkit::ScratchFolder& scratch)
{
    PrintHeading("Reading a setting");
    for (const unsigned values : {10U, 100000U}) {
        const std::filesystem::path store = scratch / "registry.reg";
        MakeStore(store, scratch / "App.log", values - 3);
        PrintRow("a number, to a stat; store of " + std::to_string(values) + " values",
                 InOwnProcess([&] { return CompareRead(plan, store); }), {1.2, 0});
    }
}

}  // namespace bench
