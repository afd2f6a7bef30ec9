// The modules of a process, as the operator's tool lists them.
#include "platform/modules.h"

#include "cli/session.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <limits>

namespace {

using tool::platform::Module;
using tool::platform::ModulesOf;

TEST(ModulesOfAProcess, AreItsProgramAndItsLibrariesEachOnce)
{
    const std::vector<Module> modules = ModulesOf(static_cast<std::uint32_t>(getpid()));
    const auto count = [&](const std::string& part) {
        return std::count_if(modules.begin(), modules.end(), [&](const Module& module) {
            return !module.IsReplaced && std::filesystem::path(module.Path).filename().string().starts_with(part);
        });
    };
    EXPECT_EQ(count("mapped_modules_test"), 1);
    EXPECT_EQ(std::max(count("libc.so"), count("kernel32.dll")), 1);
}

TEST(ModulesOfAProcess, ThatDoesNotExistCannotBeRead)
{
    try {
        ModulesOf(std::numeric_limits<std::uint32_t>::max());
        FAIL();
    } catch (const tool::Failure& failure) {
        EXPECT_EQ(failure.code(), tool::Exit::unreadable);
    }
}

}  // namespace
