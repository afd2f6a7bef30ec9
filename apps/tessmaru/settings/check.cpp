// Finds what is wrong in a settings store. Keys of other programs, as in an export of a whole machine, are no faults,
// nor are the trees of other releases.
#include "settings/check.h"

#include "cli/nearest.h"
#include "settings/catalogue.h"
#include "settings/value_checks.h"
#include "text/ascii.h"

#include <algorithm>
#include <optional>

namespace tool {
namespace {

constexpr std::string_view DrivesKey =
    "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Session Manager\\DOS Devices";

std::vector<std::string> PartsOf(std::string_view path)
{
    std::vector<std::string> parts;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find('\\'), path.size());
        parts.emplace_back(path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return parts;
}

std::string Join(const std::vector<std::string>& parts)
{
    std::string path;
    for (const std::string& part : parts)
        path += (path.empty() ? "" : "\\") + part;
    return path;
}

bool IsBelow(std::string_view path, std::string_view key)
{
    return path.size() >= key.size() && EqualIgnoringCase(path.substr(0, key.size()), key) &&
           (path.size() == key.size() || path[key.size()] == '\\');
}

/// Whether a part of a path is a release such as 4.08.00-de.
bool IsRelease(std::string_view part)
{
    const std::size_t numbers = part.find_first_not_of("0123456789.");
    return numbers != std::string_view::npos && numbers > 0 && part[numbers] == '-' &&
           part.substr(0, numbers).find('.') != std::string_view::npos;
}

/// The known keys as paths of parts.
class KnownKeys {
public:
    KnownKeys()
    {
        for (const Setting& setting : Settings())
            Paths.push_back(PartsOf(KeyOf(setting)));
        Paths.push_back(PartsOf(DrivesKey));
    }

    /// The fault of a key; empty if it is known, above a known one, or not of the suite.
    std::string FaultOf(const std::string& path) const
    {
        const std::string release = ReleaseKey();
        const std::string product = release.substr(0, release.rfind('\\'));
        const std::vector<std::string> given = PartsOf(path);
        std::vector<std::string> meant;
        bool isChanged = false;
        for (const std::string& part : given) {
            if (Join(meant) == product && IsRelease(part) &&
                !EqualIgnoringCase(part, release.substr(product.size() + 1)))
                return {};
            const auto nearest = NearestAfter(meant, part);
            // A key above those of the suite that resembles no key of it belongs to another program.
            if (!nearest && meant.size() < PartsOf(product).size() - 1)
                return {};
            if (!nearest)
                return "the key is unknown: nothing reads its values";
            isChanged = isChanged || !EqualIgnoringCase(*nearest, part);
            meant.push_back(*nearest);
        }
        const bool isSuggested = isChanged && (IsBelow(Join(meant), product) || IsWhole(meant));
        return isSuggested ? "the key is unknown; did you mean [" + Join(meant) + "]?" : std::string();
    }

private:
    /// The known part that follows `meant` and is `part`, or resembles it.
    std::optional<std::string> NearestAfter(const std::vector<std::string>& meant, const std::string& part) const
    {
        std::vector<std::string> next;
        for (const auto& path : Paths) {
            if (path.size() <= meant.size() || !std::equal(meant.begin(), meant.end(), path.begin()))
                continue;
            if (EqualIgnoringCase(path[meant.size()], part))
                return path[meant.size()];
            next.push_back(path[meant.size()]);
        }
        return Nearest(part, next);
    }

    bool IsWhole(const std::vector<std::string>& meant) const
    {
        return std::find(Paths.begin(), Paths.end(), meant) != Paths.end();
    }

    std::vector<std::vector<std::string>> Paths;
};

/// The fault of a value of the suite's tree that is no setting.
std::string UnknownName(const StoreValue& value)
{
    std::vector<std::string> names;
    const Setting* elsewhere = nullptr;
    for (const Setting& setting : Settings()) {
        if (!setting.Name.empty() && EqualIgnoringCase(KeyOf(setting), value.Key))
            names.emplace_back(setting.Name);
        if (!value.Name.empty() && EqualIgnoringCase(setting.Name, value.Name))
            elsewhere = &setting;
    }
    const std::string start = value.Name.empty() ? "the key's unnamed value is no setting"
                                                 : "\"" + value.Name + "\" is no setting of this key";
    if (elsewhere != nullptr)
        return start + ": it belongs to [" + KeyOf(*elsewhere) + "]";
    const auto nearest = Nearest(value.Name, names);
    return nearest ? start + "; did you mean \"" + *nearest + "\"?" : start;
}

std::string DriveFault(const StoreValue& value)
{
    const bool isDrive = value.Name.size() == 2 && value.Name[1] == ':' && LowerAscii(value.Name[0]) >= 'a' &&
                         LowerAscii(value.Name[0]) <= 'z';
    if (!isDrive)
        return "\"" + value.Name + "\" is no drive: write a letter and a colon";
    const std::string folder = TextOf(value);
    return folder.starts_with('/') || folder.starts_with('\\')
               ? std::string()
               : value.Name + " is \"" + folder + "\": write the path of a folder from the root";
}

std::string ValueFault(const StoreValue& value, const std::string& release)
{
    for (const Setting& setting : Settings()) {
        if (EqualIgnoringCase(setting.Name, value.Name) && EqualIgnoringCase(KeyOf(setting), value.Key))
            return FaultOf(setting, value);
    }
    if (EqualIgnoringCase(value.Key, DrivesKey))
        return DriveFault(value);
    return IsBelow(value.Key, release) ? UnknownName(value) : std::string();
}

}  // namespace

std::vector<StoreFault> CheckStore(const Store& store)
{
    std::vector<StoreFault> faults = store.Faults;
    const KnownKeys known;
    std::vector<std::string> unknown;
    for (const StoreKey& key : store.Keys) {
        if (std::string fault = known.FaultOf(key.Path); !fault.empty()) {
            faults.push_back({key.Line, std::move(fault)});
            unknown.push_back(key.Path);
        }
    }
    const std::string release = ReleaseKey();
    for (const StoreValue& value : store.Values) {
        // The fault of its key is enough.
        if (std::find(unknown.begin(), unknown.end(), value.Key) != unknown.end())
            continue;
        if (std::string fault = ValueFault(value, release); !fault.empty())
            faults.push_back({value.Line, std::move(fault)});
    }
    std::stable_sort(faults.begin(), faults.end(),
                     [](const StoreFault& one, const StoreFault& other) { return one.Line < other.Line; });
    return faults;
}

}  // namespace tool
