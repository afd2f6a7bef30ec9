// The debug mask: the bits that it has on, and the debug records that it lets through.
#include "tessmaru/log.h"
#include "testkit/log_machine.h"
#include "testkit/log_reader.h"
#include "testkit/test_process.h"
#include "testkit/whole_log.h"

#include <stdexcept>
#include <vector>

using namespace utility::literals;
using testkit::LogMachine;
using testkit::RunAlone;
using utilities::CLog;

namespace {

const std::string Invalid = "Debug mask contains invalid data - All bits forced to OFF!";

struct MaskCase {
    std::string Text;
    std::vector<std::string> Lines;  // before the opening lines
    std::vector<LONG> Bits;          // the bits that are on
};

TEST(DebugMask, DecidesWhichDebugRecordsAreWritten)
{
    std::vector<LONG> all;
    for (LONG bit = 0; bit < 64; ++bit)
        all.push_back(bit);
    const std::string zeros(63, '0');
    const MaskCase cases[] = {
        {"", {}, {}},
        {"0", {}, {}},
        {"1", {"Debug mask: 1 bits ON"}, {0}},
        {"10", {"Debug mask: 1 bits ON"}, {1}},
        {"101", {"Debug mask: 2 bits ON"}, {0, 2}},
        {"1" + zeros, {"Debug mask: 1 bits ON"}, {63}},
        {zeros + "1", {"Debug mask: 1 bits ON"}, {0}},
        {zeros + "11", {"Debug mask: 1 bits ON"}, {0}},
        {zeros + "1x and more", {"Debug mask: 1 bits ON"}, {0}},
        {std::string(64, '1'), {"Debug mask: 64 bits ON"}, all},
        {"1x1", {Invalid}, {}},
        {"x" + zeros, {Invalid}, {}},
        {" 1", {Invalid}, {}},
        {"\xC3\xA9", {Invalid}, {}},
    };
    for (const MaskCase& mask : cases) {
        const LogMachine machine(mask.Text);
        RunAlone(machine, [](const LogMachine&) {
            CLog* const log = CLog::GetInstance();
            for (LONG bit = 0; bit < 64; ++bit)
                EXPECT_EQ(log->LogDebug(bit, u"bit %d"_w, u"Test"_w, bit), 0);
        });
        std::vector<std::string> expected = mask.Lines;
        expected.insert(expected.end(), {"----------", "Log opened"});
        for (const LONG bit : mask.Bits)
            expected.push_back("bit " + std::to_string(bit));
        expected.insert(expected.end(), {"Log closing", "-----------"});
        EXPECT_EQ(testkit::Texts(machine.Log), expected) << mask.Text;
        const testkit::LogFile log = testkit::WholeLog(machine.Log);
        for (const testkit::Record& record : log.Records()) {
            EXPECT_EQ(record.Level == "WARN", record.Text == Invalid);
            EXPECT_EQ(record.Level == "DBUG", record.Text.starts_with("bit "));
        }
    }
}

TEST(DebugMask, RefusesBitsOutsideTheMaskBeforeFormatting)
{
    const LogMachine machine("1");
    RunAlone(machine, [](const LogMachine&) {
        CLog* const log = CLog::GetInstance();
        for (const LONG bit : {LONG{64}, LONG{-1}, LONG{0x7FFFFFFF}, static_cast<LONG>(0x80000000)}) {
            try {
                log->LogDebug(bit, u"%s"_w, u"Test"_w, u"never"_w);
                ADD_FAILURE() << bit;
            } catch (const std::out_of_range& failure) {
                EXPECT_STREQ(failure.what(), "invalid bitset<N> position");
            }
        }
        // If the bit is off, nothing is formatted: the arguments of %s do not exist.
        EXPECT_EQ(log->LogDebug(1, u"%s%s%s%s"_w, u"Test"_w), 0);
    });
    EXPECT_EQ(testkit::Texts(machine.Log).size(), 5U);
}

TEST(DebugMask, IsReadOnceForEachOpening)
{
    const LogMachine machine("1");
    RunAlone(machine, [](const LogMachine& sameMachine) {
        CLog* const log = CLog::GetInstance();
        sameMachine.SetLog(sameMachine.Log, "10");
        log->LogDebug(0, u"old mask"_w, u"Test"_w);
        log->LogDebug(1, u"not yet"_w, u"Test"_w);
        log->Initialise();
        log->LogDebug(0, u"no more"_w, u"Test"_w);
        log->LogDebug(1, u"new mask"_w, u"Test"_w);
    });
    EXPECT_EQ(testkit::Texts(machine.Log),
              std::vector<std::string>({"Debug mask: 1 bits ON", "----------", "Log opened", "old mask",
                                        "Debug mask: 1 bits ON", "new mask", "Log closing", "-----------"}));
}

}  // namespace
