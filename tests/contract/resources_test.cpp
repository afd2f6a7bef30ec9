// Rows of a module's string table.
#include "support.h"
#include "system.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

constexpr unsigned short Guard = 0xBEEF;

struct Loaded {
    int Units;
    utility::wstring Text;
};

/// Loads a row into room for `size` units and looks at what stands behind it.
Loaded Load(HINSTANCE module, UINT row, int size)
{
    std::vector<unsigned short> buffer(static_cast<std::size_t>(size) + 4, Guard);
    buffer[0] = 0;
    const int units = LoadStringW(module, row, platform::Wide(buffer.data()), size);
    for (std::size_t i = static_cast<std::size_t>(units) + 1; i < buffer.size(); ++i)
        EXPECT_EQ(buffer[i], Guard) << row;
    return {units, buffer.data()};
}

TEST(Rows, AreFoundByNumber)
{
    const struct {
        UINT Row;
        utility::wstring Text;
    } rows[] = {{0, support::Wide("row 0")},
                {7, support::Wide("seven ") + utility::wstring{0xE4, 0x4E2D}},
                {15, support::Wide("the last of its block")},
                {16, support::Wide("the first of the next")},
                {65535, support::Wide("the last of all")},
                {1, {}},
                {17, {}},
                {4711, {}}};
    const HMODULE program = GetModuleHandleW(nullptr);
    for (const auto& row : rows) {
        for (const HINSTANCE module : {program, HMODULE{nullptr}}) {
            const Loaded loaded = Load(module, row.Row, 64);
            EXPECT_EQ(loaded.Text, row.Text) << row.Row;
            EXPECT_EQ(loaded.Units, static_cast<int>(row.Text.size())) << row.Row;
        }
        EXPECT_EQ(Load(support::SystemModule(), row.Row, 64).Units, 0) << "a module without rows";
    }
}

TEST(Rows, AreCutToTheRoom)
{
    const utility::wstring whole = support::Wide("row 0");
    for (int size = 1; size < 8; ++size) {
        const Loaded loaded = Load(nullptr, 0, size);
        EXPECT_EQ(loaded.Text, whole.substr(0, static_cast<std::size_t>(size) - 1)) << size;
        EXPECT_EQ(loaded.Units, std::min(size - 1, 5));
    }
}

}  // namespace
