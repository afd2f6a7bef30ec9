// Fuzzes variants and safe arrays: runs a random program of operations on them. A copy must show the same as its
// source. The sanitizer reports what leaks and what is used after its release.
#include "system.h"
#include "testkit/counted_object.h"
#include "testkit/require.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace {

constexpr std::size_t MostElements = 48;
constexpr std::size_t MostText = 2000;  // of a value with all its parts

using testkit::Require;

testkit::CountedObject<IUnknown> object;

std::string Show(SAFEARRAY* array);

/// A null string is shown as an empty one: copies of variants turn one into the other.
std::string Show(VARTYPE type, const void* place)
{
    std::string text = "s";
    switch (type) {
        case VT_EMPTY: return "-";
        case VT_I4: return std::to_string(*static_cast<const LONG*>(place));
        case VT_BSTR:
            for (UINT i = 0; i < SysStringLen(*static_cast<const BSTR*>(place)); ++i)
                text += static_cast<char>('0' + (*static_cast<const BSTR*>(place))[i]);
            return text;
        case VT_UNKNOWN: return *static_cast<IUnknown* const*>(place) == &object ? "object" : "-";
        case VT_VARIANT: {
            const auto& variant = *static_cast<const VARIANT*>(place);
            return Show(variant.vt, &variant.byref);
        }
        default: Require((type & VT_ARRAY) != 0); return Show(*static_cast<SAFEARRAY* const*>(place));
    }
}

std::string Show(const VARIANT& variable)
{
    return Show(VT_VARIANT, &variable);
}

VARTYPE TypeOf(SAFEARRAY* array)
{
    VARTYPE type = VT_EMPTY;
    Require(SafeArrayGetVartype(array, &type) == S_OK);
    return type;
}

SAFEARRAYBOUND BoundOf(SAFEARRAY* array, UINT dimension)
{
    LONG lower = 0;
    LONG upper = 0;
    Require(SafeArrayGetLBound(array, dimension, &lower) == S_OK);
    Require(SafeArrayGetUBound(array, dimension, &upper) == S_OK);
    return {static_cast<ULONG>(upper - lower + 1), lower};
}

std::string Show(SAFEARRAY* array)
{
    if (array == nullptr)
        return "none";
    std::string text = "[" + std::to_string(TypeOf(array));
    std::size_t elements = 1;
    for (UINT dimension = 1; dimension <= SafeArrayGetDim(array); ++dimension) {
        const SAFEARRAYBOUND bound = BoundOf(array, dimension);
        text += " " + std::to_string(bound.lLbound) + "+" + std::to_string(bound.cElements);
        elements *= bound.cElements;
    }
    for (std::size_t i = 0; i < elements; ++i)
        text += " " + Show(TypeOf(array), static_cast<const char*>(array->pvData) + i * SafeArrayGetElemsize(array));
    return text + "]";
}

/// The bytes of the program, and zeros after its end.
class Program {
public:
    Program(const std::uint8_t* data, std::size_t size) : Data(data), Left(size) {}

    bool done() const { return Left == 0; }
    std::uint8_t Take()
    {
        if (Left == 0)
            return 0;
        --Left;
        return *Data++;
    }

private:
    const std::uint8_t* Data;
    std::size_t Left;
};

class Machine {
public:
    Machine() = default;
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    ~Machine()
    {
        for (VARIANT& variable : Variables)
            Require(VariantClear(&variable) == S_OK);
        for (SAFEARRAY* const array : Arrays) {
            while (array != nullptr && array->cLocks != 0)
                SafeArrayUnlock(array);
            Require(SafeArrayDestroy(array) == S_OK);
        }
        Require(object.References == 1);
    }

    void Step(Program& program)
    {
        const std::uint8_t operation = program.Take();
        VARIANT& variable = Variables[program.Take() % Variables.size()];
        SAFEARRAY*& array = Arrays[program.Take() % Arrays.size()];
        switch (operation % 12) {
            case 0: Set(program, variable); break;
            case 1: Copy(variable, Variables[program.Take() % Variables.size()]); break;
            case 2: Create(program, array); break;
            case 3: Destroy(array); break;
            case 4: Require(SafeArrayLock(array) == (array != nullptr ? S_OK : E_INVALIDARG)); break;
            case 5: Unlock(array); break;
            case 6: Redim(program, array); break;
            case 7: Put(program, array, variable); break;
            case 8: Get(program, array, variable); break;
            case 9: Copy(array, Arrays[program.Take() % Arrays.size()]); break;
            case 10: Copy(variable, array); break;
            default: Require(VariantClear(&variable) == S_OK); break;
        }
        Show(variable);
        Show(array);
    }

private:
    static void Set(Program& program, VARIANT& variable)
    {
        Require(VariantClear(&variable) == S_OK);
        std::basic_string<WCHAR> text;
        constexpr VARTYPE types[] = {VT_EMPTY, VT_I4, VT_BSTR, VT_UNKNOWN};
        variable.vt = types[program.Take() % 4];
        if (variable.vt == VT_I4) {
            variable.lVal = program.Take();
        } else if (variable.vt == VT_BSTR) {
            text.resize(program.Take() % 6);
            for (WCHAR& unit : text)
                unit = static_cast<WCHAR>(program.Take() % 3);
            variable.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
        } else if (variable.vt == VT_UNKNOWN) {
            object.AddRef();
            variable.punkVal = &object;
        }
    }

    static void Copy(VARIANT& target, const VARIANT& source)
    {
        const std::string text = Show(source);
        Require(VariantCopy(&target, &source) == S_OK);
        Require(Show(target) == text);
    }

    static void Copy(VARIANT& target, SAFEARRAY* source)
    {
        if (source == nullptr)
            return;
        VARIANT holder{};
        holder.vt = static_cast<VARTYPE>(VT_ARRAY | TypeOf(source));
        holder.parray = source;
        Copy(target, holder);
    }

    static void Copy(SAFEARRAY*& target, SAFEARRAY* const& source)
    {
        if (&target == &source || !Destroy(target))
            return;
        Require(SafeArrayCopy(source, &target) == S_OK);
        Require(Show(target) == Show(source));
    }

    static void Create(Program& program, SAFEARRAY*& array)
    {
        if (!Destroy(array))
            return;
        constexpr VARTYPE types[] = {VT_I4, VT_BSTR, VT_VARIANT, VT_UNKNOWN};
        const VARTYPE type = types[program.Take() % 4];
        std::vector<SAFEARRAYBOUND> bounds(1 + program.Take() % 3);
        std::size_t elements = 1;
        for (SAFEARRAYBOUND& bound : bounds) {
            bound = {program.Take() % 5U, program.Take() % 5 - 2};
            elements *= bound.cElements;
        }
        if (elements > MostElements)
            return;
        array = SafeArrayCreate(type, static_cast<UINT>(bounds.size()), bounds.data());
        Require(array != nullptr);
    }

    /// @return whether there is no array afterwards
    static bool Destroy(SAFEARRAY*& array)
    {
        const bool locked = array != nullptr && array->cLocks != 0;
        Require(SafeArrayDestroy(array) == (locked ? DISP_E_ARRAYISLOCKED : S_OK));
        if (!locked)
            array = nullptr;
        return !locked;
    }

    static void Unlock(SAFEARRAY* array)
    {
        const HRESULT expected = array == nullptr ? E_INVALIDARG : array->cLocks == 0 ? E_UNEXPECTED : S_OK;
        Require(SafeArrayUnlock(array) == expected);
    }

    static void Redim(Program& program, SAFEARRAY* array)
    {
        SAFEARRAYBOUND bound{program.Take() % 7U, program.Take() % 5 - 2};
        if (array != nullptr)
            Require(SafeArrayRedim(array, &bound) == (array->cLocks != 0 ? DISP_E_ARRAYISLOCKED : S_OK));
    }

    /// Takes an index for each dimension. @return the result that a use of the element must have
    static HRESULT TakeIndices(Program& program, SAFEARRAY* array, std::array<LONG, 3>& indices)
    {
        HRESULT expected = S_OK;
        for (UINT i = 0; i < SafeArrayGetDim(array); ++i) {
            indices[i] = program.Take() % 8 - 3;
            const SAFEARRAYBOUND bound = BoundOf(array, i + 1);
            if (static_cast<ULONG>(indices[i] - bound.lLbound) >= bound.cElements)
                expected = DISP_E_BADINDEX;
        }
        return expected;
    }

    static void Put(Program& program, SAFEARRAY* array, VARIANT& variable)
    {
        if (array == nullptr || Show(array).size() + Show(variable).size() > MostText)
            return;
        std::array<LONG, 3> indices{};
        const HRESULT expected = TakeIndices(program, array, indices);
        const VARTYPE type = TypeOf(array);
        if (type != VT_VARIANT && type != variable.vt)
            return;
        void* const element = type == VT_VARIANT ? &variable : type == VT_I4 ? &variable.lVal : variable.byref;
        Require(SafeArrayPutElement(array, indices.data(), element) == expected);
        void* place = nullptr;
        Require(SafeArrayPtrOfIndex(array, indices.data(), &place) == expected);
        Require(FAILED(expected) || Show(type, place) == Show(variable));
    }

    static void Get(Program& program, SAFEARRAY* array, VARIANT& variable)
    {
        if (array == nullptr)
            return;
        std::array<LONG, 3> indices{};
        const HRESULT expected = TakeIndices(program, array, indices);
        VARIANT got{};
        got.vt = TypeOf(array);
        void* const element = got.vt == VT_VARIANT ? static_cast<void*>(&got) : &got.byref;
        Require(SafeArrayGetElement(array, indices.data(), element) == expected);
        if (FAILED(expected))
            return;
        Require(VariantClear(&variable) == S_OK);
        variable = got;
    }

    std::array<VARIANT, 3> Variables{};
    std::array<SAFEARRAY*, 3> Arrays{};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Program program(data, size);
    Machine machine;
    while (!program.done())
        machine.Step(program);
    return 0;
}
