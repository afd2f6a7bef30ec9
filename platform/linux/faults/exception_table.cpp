// Reads the exception tables of functions, as the C++ runtime does before it unwinds. It allocates nothing.
//
// A table has a header, a list of call sites in ascending order, and lists of actions. A call site is a range of
// instructions with a landing pad, which may be none, and with its first action. An action has a filter: 0 for
// destructors, a positive number for a handler of the type with this number, a negative one for an exception
// specification. An instruction that no call site contains must not throw.
#include "faults/exception_table.h"

#include <cstring>

extern "C" const unsigned char* _Unwind_Find_FDE(void* pc, struct dwarf_eh_bases* bases);

// As libgcc defines it.
struct dwarf_eh_bases {
    void* Text;
    void* Data;
    void* Function;
};

namespace {

using layer::FrameAction;

// Encodings of numbers and addresses (DW_EH_PE).
constexpr unsigned int Omitted = 0xFF;
constexpr unsigned int FormatBits = 0x0F;
constexpr unsigned int BaseBits = 0x70;
constexpr unsigned int RelativeToItself = 0x10;
constexpr unsigned int RelativeToData = 0x30;
constexpr unsigned int Indirect = 0x80;

class TableReader {
public:
    TableReader(const unsigned char* at, std::uintptr_t data) : At(at), Data(data) {}

    const unsigned char* Position() const { return At; }
    void Skip(std::uintptr_t bytes) { At += bytes; }
    unsigned int Byte() { return *At++; }

    std::uintptr_t Unsigned()
    {
        unsigned int shift = 0;
        return Groups(shift);
    }

    std::intptr_t Signed()
    {
        unsigned int shift = 0;
        std::uintptr_t value = Groups(shift);
        if (shift < sizeof value * 8 && (At[-1] & 0x40) != 0)
            value |= ~std::uintptr_t{0} << shift;
        return static_cast<std::intptr_t>(value);
    }

    /// A number or an address in one of the encodings.
    std::uintptr_t Encoded(unsigned int encoding)
    {
        const auto start = reinterpret_cast<std::uintptr_t>(At);
        std::uintptr_t value = Plain(encoding & FormatBits);
        if (value == 0)
            return 0;
        if ((encoding & BaseBits) == RelativeToItself)
            value += start;
        else if ((encoding & BaseBits) == RelativeToData)
            value += Data;
        return (encoding & Indirect) != 0 ? *reinterpret_cast<const std::uintptr_t*>(value) : value;
    }

private:
    /// A number in groups of seven bits (LEB128).
    std::uintptr_t Groups(unsigned int& shift)
    {
        std::uintptr_t value = 0;
        for (;;) {
            const unsigned int group = Byte();
            if (shift < sizeof value * 8)
                value |= std::uintptr_t{group & 0x7FU} << shift;
            shift += 7;
            if ((group & 0x80U) == 0)
                return value;
        }
    }

    template <class Number>
    std::uintptr_t Fixed()
    {
        Number value;
        std::memcpy(&value, At, sizeof value);
        At += sizeof value;
        return static_cast<std::uintptr_t>(value);
    }

    std::uintptr_t Plain(unsigned int format)
    {
        switch (format) {
            case 1: return Unsigned();
            case 2: return Fixed<std::uint16_t>();
            case 3: return Fixed<std::uint32_t>();
            case 4: return Fixed<std::uint64_t>();
            case 9: return static_cast<std::uintptr_t>(Signed());
            case 0xA: return Fixed<std::int16_t>();
            case 0xB: return Fixed<std::int32_t>();
            case 0xC: return Fixed<std::int64_t>();
            default: return Fixed<std::uintptr_t>();
        }
    }

    const unsigned char* At;
    std::uintptr_t Data;
};

std::uintptr_t EncodedBytes(unsigned int encoding)
{
    switch (encoding & 7U) {
        case 2: return 2;
        case 3: return 4;
        case 4: return 8;
        default: return sizeof(std::uintptr_t);
    }
}

/// The header of a table, and the call site of an instruction.
struct CallSite {
    bool Found = false;
    std::uintptr_t LandingPad = 0;           // 0 for none
    const unsigned char* Actions = nullptr;  // null for destructors only
    const unsigned char* Types = nullptr;    // the end of the list of types
    unsigned int TypeEncoding = Omitted;
};

CallSite FindCallSite(_Unwind_Context* context, const unsigned char* table, std::uintptr_t pc)
{
    const std::uintptr_t start = _Unwind_GetRegionStart(context);
    TableReader reader(table, _Unwind_GetDataRelBase(context));
    CallSite site;
    const unsigned int padEncoding = reader.Byte();
    const std::uintptr_t padStart = padEncoding == Omitted ? start : reader.Encoded(padEncoding);
    site.TypeEncoding = reader.Byte();
    if (site.TypeEncoding != Omitted) {
        const std::uintptr_t bytes = reader.Unsigned();
        site.Types = reader.Position() + bytes;
    }
    const unsigned int encoding = reader.Byte() & FormatBits;
    const std::uintptr_t bytes = reader.Unsigned();
    const unsigned char* const actions = reader.Position() + bytes;
    while (reader.Position() < actions) {
        const std::uintptr_t from = start + reader.Encoded(encoding);
        const std::uintptr_t length = reader.Encoded(encoding);
        const std::uintptr_t pad = reader.Encoded(encoding);
        const std::uintptr_t action = reader.Unsigned();
        if (pc < from)
            break;
        if (pc - from >= length)
            continue;
        site.Found = true;
        site.LandingPad = pad != 0 ? padStart + pad : 0;
        site.Actions = action != 0 ? actions + action - 1 : nullptr;
        break;
    }
    return site;
}

/// The personality routine of the function that contains an address, or null.
_Unwind_Personality_Fn PersonalityOf(std::uintptr_t pc)
{
    dwarf_eh_bases bases{};
    const unsigned char* const description = _Unwind_Find_FDE(reinterpret_cast<void*>(pc), &bases);
    if (description == nullptr)
        return nullptr;
    // The second word is the distance back to the common description, which starts with length, id and version.
    std::uint32_t distance = 0;
    std::memcpy(&distance, description + 4, sizeof distance);
    const unsigned char* const common = description + 4 - distance;
    const auto* const augmentation = reinterpret_cast<const char*>(common + 9);
    if (augmentation[0] != 'z')
        return nullptr;
    TableReader reader(common + 9 + std::strlen(augmentation) + 1, reinterpret_cast<std::uintptr_t>(bases.Data));
    reader.Unsigned();  // alignment of code
    reader.Signed();    // alignment of data
    reader.Unsigned();  // column of the return address
    reader.Unsigned();  // length of what follows
    for (const char* letter = augmentation + 1; *letter != '\0'; ++letter) {
        if (*letter == 'P') {
            const unsigned int encoding = reader.Byte();
            return reinterpret_cast<_Unwind_Personality_Fn>(reader.Encoded(encoding));
        }
        if (*letter == 'L' || *letter == 'R')
            reader.Byte();
    }
    return nullptr;
}

/// Whether an instruction without a call site ends the program if it throws. That is so in C++; in C it is not. The
/// function's own runtime answers for an exception of another language, which it does not change.
bool RefusesGaps(_Unwind_Context* context, std::uintptr_t pc)
{
    constexpr _Unwind_Exception_Class otherLanguage = 0x5645'4C54'464C'5400;
    static _Unwind_Exception probe{};
    const _Unwind_Personality_Fn personality = PersonalityOf(pc);
    return personality != nullptr &&
           personality(1, _UA_SEARCH_PHASE, otherLanguage, &probe, context) != _URC_CONTINUE_UNWIND;
}

/// Whether a landing pad only ends the program. clang++ compiles `noexcept` to a handler of all exceptions that calls
/// this function:  push, call __cxa_begin_catch, call std::terminate
bool EndsTheProgram([[maybe_unused]] std::uintptr_t landingPad)
{
#ifdef __x86_64__
    const auto* const pad = reinterpret_cast<const unsigned char*>(landingPad);
    constexpr unsigned char passException[] = {0x48, 0x89, 0xC7, 0xE8};  // mov rdi, rax; call
    if (std::memcmp(pad, passException, sizeof passException) != 0)
        return false;
    std::int32_t distance = 0;
    std::memcpy(&distance, pad + 4, sizeof distance);
    const unsigned char* const called = pad + 8 + distance;
    return called[0] == 0x50 && called[1] == 0xE8 && called[6] == 0xE8;
#else
    return false;
#endif
}

const std::type_info* TypeOf(const CallSite& site, std::uintptr_t filter, std::uintptr_t data)
{
    TableReader reader(site.Types - filter * EncodedBytes(site.TypeEncoding), data);
    return reinterpret_cast<const std::type_info*>(reader.Encoded(site.TypeEncoding));
}

bool Catches(const std::type_info& handler, const std::type_info* thrown)
{
    static std::uintptr_t object[8];  // stands for the exception, which does not exist yet
    void* at = object;
    return thrown == nullptr || handler.__do_catch(thrown, &at, 1);
}

/// Whether an exception specification lets the exception through. Its list of type numbers ends with 0.
bool Allows(const CallSite& site, std::uintptr_t specification, std::uintptr_t data, const std::type_info* thrown)
{
    TableReader reader(site.Types + specification - 1, data);
    while (const std::uintptr_t type = reader.Unsigned()) {
        if (Catches(*TypeOf(site, type, data), thrown))
            return true;
    }
    return false;
}

FrameAction ActionAt(const CallSite& site, std::uintptr_t data, const std::type_info* thrown)
{
    for (const unsigned char* at = site.Actions; at != nullptr;) {
        TableReader reader(at, data);
        const std::intptr_t filter = reader.Signed();
        const unsigned char* const next = reader.Position();
        const std::intptr_t distance = reader.Signed();
        if (filter < 0 && !Allows(site, static_cast<std::uintptr_t>(-filter), data, thrown))
            return FrameAction::refuse;
        if (filter > 0) {
            const std::type_info* const type = TypeOf(site, static_cast<std::uintptr_t>(filter), data);
            if (type == nullptr)
                return EndsTheProgram(site.LandingPad) ? FrameAction::refuse : FrameAction::take;
            if (Catches(*type, thrown))
                return FrameAction::take;
        }
        at = distance != 0 ? next + distance : nullptr;
    }
    return FrameAction::pass;
}

}  // namespace

FrameAction layer::ActionOf(_Unwind_Context* context, std::uintptr_t pc, const std::type_info* thrown)
{
    const auto* const table = static_cast<const unsigned char*>(_Unwind_GetLanguageSpecificData(context));
    if (table == nullptr)
        return FrameAction::pass;
    const CallSite site = FindCallSite(context, table, pc);
    if (!site.Found)
        return RefusesGaps(context, pc) ? FrameAction::refuse : FrameAction::pass;
    if (site.LandingPad == 0 || site.Types == nullptr)  // without types there are destructors only
        return FrameAction::pass;
    return ActionAt(site, _Unwind_GetDataRelBase(context), thrown);
}
