// Contract of rows of a module's string table.
#include "system.h"
#include "testkit/known_modules.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

constexpr unsigned short Guard = 0xBEEF;

struct LoadedRow {
    int Units;
    utility::wstring Text;
};

/// Loads a row into a buffer of `size` units, and checks that nothing after it is written.
LoadedRow Load(HINSTANCE module, UINT row, int size)
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
    } rows[] = {{0, testkit::Wide("row 0")},
                {7, testkit::Wide("seven ") + utility::wstring{0xE4, 0x4E2D}},
                {15, testkit::Wide("the last of its block")},
                {16, testkit::Wide("the first of the next")},
                {65535, testkit::Wide("the last of all")},
                {1, {}},
                {17, {}},
                {4711, {}}};
    const HMODULE program = GetModuleHandleW(nullptr);
    for (const auto& row : rows) {
        for (const HINSTANCE module : {program, HMODULE{nullptr}}) {
            const LoadedRow loaded = Load(module, row.Row, 64);
            EXPECT_EQ(loaded.Text, row.Text) << row.Row;
            EXPECT_EQ(loaded.Units, static_cast<int>(row.Text.size())) << row.Row;
        }
        EXPECT_EQ(Load(testkit::SystemModule(), row.Row, 64).Units, 0) << "a module without rows";
    }
}

TEST(Rows, AreCutToTheBuffer)
{
    const utility::wstring whole = testkit::Wide("row 0");
    for (int size = 1; size < 8; ++size) {
        const LoadedRow loaded = Load(nullptr, 0, size);
        EXPECT_EQ(loaded.Text, whole.substr(0, static_cast<std::size_t>(size) - 1)) << size;
        EXPECT_EQ(loaded.Units, std::min(size - 1, 5));
    }
}

}  // namespace
