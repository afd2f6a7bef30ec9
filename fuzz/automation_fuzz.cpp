// Fuzzes variants and safe arrays: runs a random program of operations on them and on a model of plain values. Every
// result and every element must be equal. The sanitizer reports what leaks.
#include "system.h"
#include "tessmaru/automation.h"
#include "testkit/counted_object.h"
#include "testkit/require.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

namespace {

using Text = std::basic_string<WCHAR>;
namespace Convert = utility::CCOMUtility;

constexpr std::size_t MostElements = 48;
constexpr std::size_t MostWeight = 400;  // of a value with all its parts

using testkit::Require;

testkit::CountedObject<IUnknown> object;

struct List;

/// The content of a variant or an element.
struct Value {
    VARTYPE Type = VT_EMPTY;
    LONG Number = 0;
    std::optional<Text> String;
    std::vector<List> Array;  // one, for an array
};

struct List {
    VARTYPE Type = VT_I4;
    std::vector<SAFEARRAYBOUND> Bounds;
    std::vector<Value> Elements;  // the first dimension varies fastest
    unsigned Locks = 0;
};

std::size_t Weight(const Value& value);

std::size_t Weight(const List& list)
{
    std::size_t weight = 1;
    for (const Value& element : list.Elements)
        weight += Weight(element);
    return weight;
}

std::size_t Weight(const Value& value)
{
    return value.Array.empty() ? 1 : Weight(value.Array.front());
}

/// A copy has no locks.
List CopyOf(List list)
{
    list.Locks = 0;
    return list;
}

/// In the copy of a variant a null string becomes an empty one.
Value CopyOf(Value value)
{
    if (value.Type == VT_BSTR && !value.String)
        value.String.emplace();
    return value;
}

bool Same(BSTR real, const std::optional<Text>& model)
{
    return model ? real != nullptr && Text(real, SysStringLen(real)) == *model : real == nullptr;
}

bool Same(SAFEARRAY* real, const List& model);

bool Same(const VARIANT& real, const Value& model)
{
    if (real.vt != model.Type)
        return false;
    switch (model.Type) {
        case VT_EMPTY: return true;
        case VT_I4: return real.lVal == model.Number;
        case VT_BSTR: return Same(real.bstrVal, model.String);
        case VT_UNKNOWN: return real.punkVal == &object;
        default: return Same(real.parray, model.Array.front());
    }
}

bool SameElement(const List& list, const void* data, std::size_t i)
{
    const Value& model = list.Elements[i];
    switch (list.Type) {
        case VT_I4: return static_cast<const LONG*>(data)[i] == model.Number;
        case VT_BSTR: return Same(static_cast<const BSTR*>(data)[i], model.String);
        case VT_UNKNOWN:
            return static_cast<IUnknown* const*>(data)[i] == (model.Type == VT_UNKNOWN ? &object : nullptr);
        default: return Same(static_cast<const VARIANT*>(data)[i], model);
    }
}

bool Same(SAFEARRAY* real, const List& model)
{
    VARTYPE type = 0;
    if (SafeArrayGetDim(real) != model.Bounds.size() || real->cLocks != model.Locks ||
        SafeArrayGetVartype(real, &type) != S_OK || type != model.Type)
        return false;
    for (UINT dimension = 1; dimension <= model.Bounds.size(); ++dimension) {
        LONG lower = 0;
        LONG upper = 0;
        Require(SafeArrayGetLBound(real, dimension, &lower) == S_OK &&
                SafeArrayGetUBound(real, dimension, &upper) == S_OK);
        const SAFEARRAYBOUND& bound = model.Bounds[dimension - 1];
        if (lower != bound.lLbound || upper != lower + static_cast<LONG>(bound.cElements) - 1 ||
            utility::getSafeArrayCount(real, dimension) != static_cast<LONG>(bound.cElements))
            return false;
    }
    for (std::size_t i = 0; i < model.Elements.size(); ++i) {
        if (!SameElement(model, real->pvData, i))
            return false;
    }
    return true;
}

/// The zero of a new element.
Value NewElement(VARTYPE type)
{
    return {type == VT_VARIANT || type == VT_UNKNOWN ? VARTYPE{VT_EMPTY} : type, 0, std::nullopt, {}};
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
        for (Variable& variable : Variables)
            Require(VariantClear(&variable.Real) == S_OK);
        for (Array& array : Arrays) {
            while (array.Real != nullptr && array.Real->cLocks != 0)
                SafeArrayUnlock(array.Real);
            Require(SafeArrayDestroy(array.Real) == S_OK);
        }
        Require(object.References == 1);
    }

    void Step(Program& program)
    {
        const std::uint8_t operation = program.Take();
        Variable& variable = Variables[program.Take() % Variables.size()];
        Array& array = Arrays[program.Take() % Arrays.size()];
        switch (operation % 12) {
            case 0: SetVariable(program, variable); break;
            case 1: CopyVariable(variable, Variables[program.Take() % Variables.size()]); break;
            case 2: Create(program, array); break;
            case 3: Destroy(array); break;
            case 4: Lock(array, 1); break;
            case 5: Lock(array, -1); break;
            case 6: Redim(program, array); break;
            case 7: Put(program, array, variable); break;
            case 8: Get(program, array, variable); break;
            case 9: CopyArray(array, Arrays[program.Take() % Arrays.size()]); break;
            case 10: ToVariable(array, variable); break;
            default: ThereAndBack(array); break;
        }
        Require(Same(variable.Real, variable.Model));
        Require(array.Real == nullptr || Same(array.Real, array.Model));
    }

private:
    struct Variable {
        VARIANT Real{};
        Value Model;
    };
    struct Array {
        SAFEARRAY* Real = nullptr;
        List Model;
    };

    static Text TakeText(Program& program)
    {
        Text text(program.Take() % 6, 0);
        for (WCHAR& unit : text)
            unit = static_cast<WCHAR>(program.Take() % 3);
        return text;
    }

    static void SetVariable(Program& program, Variable& variable)
    {
        Require(VariantClear(&variable.Real) == S_OK);
        variable.Model = {};
        switch (program.Take() % 4) {
            case 0: break;
            case 1:
                variable.Model.Number = program.Take();
                variable.Real.lVal = variable.Model.Number;
                variable.Real.vt = variable.Model.Type = VT_I4;
                break;
            case 2:
                variable.Model.String = TakeText(program);
                variable.Real.bstrVal =
                    SysAllocStringLen(variable.Model.String->data(), static_cast<UINT>(variable.Model.String->size()));
                variable.Real.vt = variable.Model.Type = VT_BSTR;
                break;
            default:
                object.AddRef();
                variable.Real.punkVal = &object;
                variable.Real.vt = variable.Model.Type = VT_UNKNOWN;
                break;
        }
    }

    static void CopyVariable(Variable& target, const Variable& source)
    {
        Require(VariantCopy(&target.Real, &source.Real) == S_OK);
        if (&target != &source)
            target.Model = CopyOf(source.Model);
    }

    static void Create(Program& program, Array& array)
    {
        Destroy(array);
        if (array.Real != nullptr)
            return;
        static constexpr VARTYPE types[] = {VT_I4, VT_BSTR, VT_VARIANT, VT_UNKNOWN};
        List model{types[program.Take() % 4], {}, {}, 0};
        model.Bounds.resize(1 + program.Take() % 3);
        std::size_t elements = 1;
        for (SAFEARRAYBOUND& bound : model.Bounds) {
            bound = {program.Take() % 5U, program.Take() % 5 - 2};
            elements *= bound.cElements;
        }
        if (elements > MostElements)
            return;
        model.Elements.assign(elements, NewElement(model.Type));
        array.Real = SafeArrayCreate(model.Type, static_cast<UINT>(model.Bounds.size()), model.Bounds.data());
        Require(array.Real != nullptr);
        array.Model = model;
    }

    static void Destroy(Array& array)
    {
        const bool locked = array.Real != nullptr && array.Model.Locks != 0;
        Require(SafeArrayDestroy(array.Real) == (locked ? DISP_E_ARRAYISLOCKED : S_OK));
        if (!locked)
            array.Real = nullptr;
    }

    static void Lock(Array& array, int change)
    {
        const HRESULT result = change > 0 ? SafeArrayLock(array.Real) : SafeArrayUnlock(array.Real);
        if (array.Real == nullptr) {
            Require(result == E_INVALIDARG);
        } else if (change < 0 && array.Model.Locks == 0) {
            Require(result == E_UNEXPECTED);
        } else {
            Require(result == S_OK);
            array.Model.Locks += static_cast<unsigned>(change);
        }
    }

    static void Redim(Program& program, Array& array)
    {
        SAFEARRAYBOUND bound{program.Take() % 7U, program.Take() % 5 - 2};
        if (array.Real == nullptr) {
            Require(SafeArrayRedim(nullptr, &bound) == E_INVALIDARG);
            return;
        }
        std::size_t elements = bound.cElements;
        for (std::size_t i = 0; i + 1 < array.Model.Bounds.size(); ++i)
            elements *= array.Model.Bounds[i].cElements;
        if (elements > MostElements)
            return;
        const HRESULT result = SafeArrayRedim(array.Real, &bound);
        Require(result == (array.Model.Locks != 0 ? DISP_E_ARRAYISLOCKED : S_OK));
        if (FAILED(result))
            return;
        array.Model.Bounds.back() = bound;
        array.Model.Elements.resize(elements, NewElement(array.Model.Type));
    }

    /// Takes an index for each dimension. @return the element's place, or nothing outside the bounds.
    static std::optional<std::size_t> TakeIndices(Program& program, const List& list, std::array<LONG, 3>& indices)
    {
        std::size_t at = 0;
        std::size_t stride = 1;
        bool inside = true;
        for (std::size_t i = 0; i < list.Bounds.size(); ++i) {
            indices[i] = program.Take() % 8 - 3;
            const LONG distance = indices[i] - list.Bounds[i].lLbound;
            inside = inside && distance >= 0 && distance < static_cast<LONG>(list.Bounds[i].cElements);
            at += static_cast<std::size_t>(distance) * stride;
            stride *= list.Bounds[i].cElements;
        }
        return inside ? std::optional(at) : std::nullopt;
    }

    static void Put(Program& program, Array& array, Variable& variable)
    {
        if (array.Real == nullptr || Weight(array.Model) + Weight(variable.Model) > MostWeight)
            return;
        std::array<LONG, 3> indices{};
        const auto at = TakeIndices(program, array.Model, indices);
        void* element = nullptr;
        if (array.Model.Type == VT_VARIANT)
            element = &variable.Real;
        else if (array.Model.Type != variable.Model.Type)
            return;
        else if (array.Model.Type == VT_I4)
            element = &variable.Real.lVal;
        else
            element = variable.Real.byref;
        const HRESULT result = SafeArrayPutElement(array.Real, indices.data(), element);
        Require(result == (at ? S_OK : DISP_E_BADINDEX));
        if (at)
            array.Model.Elements[*at] = array.Model.Type == VT_VARIANT ? CopyOf(variable.Model) : variable.Model;
    }

    static void Get(Program& program, Array& array, Variable& variable)
    {
        if (array.Real == nullptr)
            return;
        std::array<LONG, 3> indices{};
        const auto at = TakeIndices(program, array.Model, indices);
        VARIANT got{};
        got.vt = array.Model.Type;
        void* const element = array.Model.Type == VT_VARIANT ? static_cast<void*>(&got) : &got.byref;
        const HRESULT result = SafeArrayGetElement(array.Real, indices.data(), element);
        Require(result == (at ? S_OK : DISP_E_BADINDEX));
        if (!at)
            return;
        Require(VariantClear(&variable.Real) == S_OK);
        variable.Model = array.Model.Elements[*at];
        if (got.vt == VT_UNKNOWN && got.punkVal == nullptr)
            got.vt = VT_EMPTY;
        variable.Real = got;
    }

    static void CopyArray(Array& target, const Array& source)
    {
        if (&target == &source)
            return;
        Destroy(target);
        if (target.Real != nullptr)
            return;
        Require(SafeArrayCopy(source.Real, &target.Real) == S_OK);
        if (&target != &source)
            target.Model = CopyOf(source.Model);
    }

    static void ToVariable(const Array& array, Variable& variable)
    {
        if (array.Real == nullptr)
            return;
        VARIANT holder{};
        holder.vt = static_cast<VARTYPE>(VT_ARRAY | array.Model.Type);
        holder.parray = array.Real;
        Require(VariantCopy(&variable.Real, &holder) == S_OK);
        variable.Model = {holder.vt, 0, std::nullopt, {CopyOf(array.Model)}};
    }

    /// Converts an array to a vector and back to another array.
    static void ThereAndBack(const Array& array)
    {
        if (array.Real == nullptr || array.Model.Bounds.size() != 1 || array.Model.Type == VT_UNKNOWN)
            return;
        const SAFEARRAYBOUND bound = array.Model.Bounds[0];
        List expected{array.Model.Type, {{0, 0}}, {}, 0};
        for (LONG index = 0; index < bound.lLbound + static_cast<LONG>(bound.cElements); ++index) {
            if (index < bound.lLbound)
                return Refused(array);
            Value element = CopyOf(array.Model.Elements[static_cast<std::size_t>(index - bound.lLbound)]);
            if (array.Model.Type == VT_BSTR)
                element.String = Text(element.String->c_str());  // up to the first zero
            expected.Elements.push_back(std::move(element));
            ++expected.Bounds[0].cElements;
        }
        SAFEARRAY* back = nullptr;
        if (array.Model.Type == VT_I4) {
            std::vector<LONG> numbers;
            Require(Convert::SafeArrayToVectLong(array.Real, numbers) == S_OK);
            Require(Convert::VectLongToSafeArray(numbers, &back) == S_OK);
        } else if (array.Model.Type == VT_BSTR) {
            std::vector<utility::wstring> strings;
            Require(Convert::SafeArrayToVectStr(array.Real, strings) == S_OK);
            Require(Convert::VectStrToSafeArray(strings, &back) == S_OK);
        } else {
            std::vector<_variant_t> variants;
            Require(Convert::SafeArrayToVariant(array.Real, variants) == S_OK);
            Require(Convert::VectVariantToSafeArray(variants, &back) == S_OK);
        }
        Require(Same(back, expected));
        Require(SafeArrayDestroy(back) == S_OK);
    }

    static void Refused(const Array& array)
    {
        try {
            std::vector<_variant_t> variants;
            Convert::SafeArrayToVariant(array.Real, variants);
            Require(false);
        } catch (const _com_error& failure) {
            Require(failure.Error() == DISP_E_BADINDEX);
        }
    }

    std::array<Variable, 3> Variables;
    std::array<Array, 3> Arrays;
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
