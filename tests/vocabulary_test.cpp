// The texts of the vocabulary. Readers of the tag specification compare with them, so each has to be exact.
#include "settings/tag_specification.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace tag_specification;

// Read when the program runs: the constants are not built before.
const struct {
    const utility::wstring& Constant;
    const char* Text;
} rows[] = {
    {EmptyString, ""},
    {SpecDatatypeColumn, "SPEC.Datatype"},
    {SpecMinColumn, "SPEC.Min"},
    {SpecMaxColumn, "SPEC.Max"},
    {SpecStepColumn, "SPEC.Step"},
    {SpecBytesColumn, "SPEC.Bytes"},
    {SpecPrsColumn, "SPEC.PRS"},
    {SpecSfeColumn, "SPEC.SFE"},
    {SpecRemovedColumn, "SPEC.Removed"},
    {SpecEnumColumn, "SPEC.Enum"},
    {SpecDecimalPlacesColumn, "SPEC.Decimal Places"},
    {SpecUnitsColumn, "SPEC.Units"},
    {SpecDefaultValueColumn, "SPEC.DefaultValue"},
    {ProtocolDatatypeColumn, "Protocol.Datatype"},
    {TagServerVariantColumn, "TagServer.Variant"},
    {TagServerTagTypeColumn, "TagServer.TagType"},
    {TagServerReadWriteFlagColumn, "TagServer.ReadWriteFlag"},
    {ProtocolReadCommandColumn, "Protocol.ReadCommand"},
    {ProtocolWriteCommandColumn, "Protocol.WriteCommand"},
    {ProtocolDecimalPlacesColumn, "Protocol.Decimal Places"},
    {AngleType, "Angle"},
    {BinaryType, "Binary"},
    {CurrentMaType, "Current - mA"},
    {DateIsoType, "Date - ISO"},
    {IntegerType, "Integer"},
    {IpAddressType, "IPAddress"},
    {FlagType, "Flag"},
    {FrequencyHzType, "Frequency - Hz"},
    {PercentageType, "Percentage"},
    {PowerWType, "Power - W"},
    {RatioType, "Ratio"},
    {StringType, "String"},
    {TagType, "Tag"},
    {TemperatureType, "Temperature"},
    {TimeHoursType, "Time - hours"},
    {TimeIsoType, "Time - ISO"},
    {TimeMinutesType, "Time - minutes"},
    {TimeMsType, "Time - ms"},
    {TimeSecondsType, "Time - seconds"},
    {TMgrActionIdType, "TMgr - Action ID"},
    {TMgrInputIdType, "TMgr - Input ID"},
    {TokenType, "Token"},
    {ValidityBitsType, "ValidityBits"},
    {VoltageVType, "Voltage - V"},
    {P25IdentType, "P25Ident"},
    {P25TalkGroupType, "P25TalkGroup"},
    {LossRateType, "LossRate"},
    {BerType, "BER"},
    {HostNameType, "HostName"},
    {TimeUsType, "Time - us"},
    {FrequencyOffsetHzType, "FrequencyOffset - Hz"},
    {VirtualTagType, "VirtualTag"},
    {EnumType, "Enum -"},
    {LevelType, "Level - "},
};

TEST(Vocabulary, HasTheTextsOfTheTagSpecification)
{
    std::set<std::string> texts;
    for (const auto& row : rows) {
        EXPECT_EQ(testkit::Narrow(row.Constant), row.Text);
        EXPECT_TRUE(texts.insert(row.Text).second) << row.Text;
    }
    EXPECT_EQ(texts.size(), 54U);
}

}  // namespace
