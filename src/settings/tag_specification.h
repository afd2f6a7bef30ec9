// The vocabulary of the tag specification: names of its columns and of the data types of its tags.
//
// Every source of the library includes this. So each module has its own constants, in this order, and does not depend
// on the start of another module; nothing is exported. The forms of the cipher are the exception: some are compiled for
// instructions that not every processor has, and these would run at load, when the constants are built.
//
// The constants are built before a module's other statics (the log's have priority 201) and end after them. A column
// name is table, point, column; in the name of a type its unit or notation follows a dash. The last two texts end open.
#pragma once

#include "tessmaru/text.h"

namespace tag_specification {

using namespace utility::literals;

[[gnu::init_priority(200)]] const utility::wstring EmptyString;

[[gnu::init_priority(200)]] const utility::wstring SpecDatatypeColumn = u"SPEC.Datatype"_w;
[[gnu::init_priority(200)]] const utility::wstring SpecMinColumn = u"SPEC.Min"_w;
[[gnu::init_priority(200)]] const utility::wstring SpecMaxColumn = u"SPEC.Max"_w;
[[gnu::init_priority(200)]] const utility::wstring SpecStepColumn = u"SPEC.Step"_w;
[[gnu::init_priority(200)]] const utility::wstring SpecBytesColumn = u"SPEC.Bytes"_w;
[[gnu::init_priority(200)]] const utility::wstring SpecPrsColumn = u"SPEC.PRS"_w;
[[gnu::init_priority(200)]] const utility::wstring SpecSfeColumn = u"SPEC.SFE"_w;
[[gnu::init_priority(200)]] const utility::wstring SpecRemovedColumn = u"SPEC.Removed"_w;
[[gnu::init_priority(200)]] const utility::wstring SpecEnumColumn = u"SPEC.Enum"_w;
[[gnu::init_priority(200)]] const utility::wstring SpecDecimalPlacesColumn = u"SPEC.Decimal Places"_w;
[[gnu::init_priority(200)]] const utility::wstring SpecUnitsColumn = u"SPEC.Units"_w;
[[gnu::init_priority(200)]] const utility::wstring SpecDefaultValueColumn = u"SPEC.DefaultValue"_w;
[[gnu::init_priority(200)]] const utility::wstring ProtocolDatatypeColumn = u"Protocol.Datatype"_w;
[[gnu::init_priority(200)]] const utility::wstring TagServerVariantColumn = u"TagServer.Variant"_w;
[[gnu::init_priority(200)]] const utility::wstring TagServerTagTypeColumn = u"TagServer.TagType"_w;
[[gnu::init_priority(200)]] const utility::wstring TagServerReadWriteFlagColumn = u"TagServer.ReadWriteFlag"_w;
[[gnu::init_priority(200)]] const utility::wstring ProtocolReadCommandColumn = u"Protocol.ReadCommand"_w;
[[gnu::init_priority(200)]] const utility::wstring ProtocolWriteCommandColumn = u"Protocol.WriteCommand"_w;
[[gnu::init_priority(200)]] const utility::wstring ProtocolDecimalPlacesColumn = u"Protocol.Decimal Places"_w;

[[gnu::init_priority(200)]] const utility::wstring AngleType = u"Angle"_w;
[[gnu::init_priority(200)]] const utility::wstring BinaryType = u"Binary"_w;
[[gnu::init_priority(200)]] const utility::wstring CurrentMaType = u"Current - mA"_w;
[[gnu::init_priority(200)]] const utility::wstring DateIsoType = u"Date - ISO"_w;
[[gnu::init_priority(200)]] const utility::wstring IntegerType = u"Integer"_w;
[[gnu::init_priority(200)]] const utility::wstring IpAddressType = u"IPAddress"_w;
[[gnu::init_priority(200)]] const utility::wstring FlagType = u"Flag"_w;
[[gnu::init_priority(200)]] const utility::wstring FrequencyHzType = u"Frequency - Hz"_w;
[[gnu::init_priority(200)]] const utility::wstring PercentageType = u"Percentage"_w;
[[gnu::init_priority(200)]] const utility::wstring PowerWType = u"Power - W"_w;
[[gnu::init_priority(200)]] const utility::wstring RatioType = u"Ratio"_w;
[[gnu::init_priority(200)]] const utility::wstring StringType = u"String"_w;
[[gnu::init_priority(200)]] const utility::wstring TagType = u"Tag"_w;
[[gnu::init_priority(200)]] const utility::wstring TemperatureType = u"Temperature"_w;
[[gnu::init_priority(200)]] const utility::wstring TimeHoursType = u"Time - hours"_w;
[[gnu::init_priority(200)]] const utility::wstring TimeIsoType = u"Time - ISO"_w;
[[gnu::init_priority(200)]] const utility::wstring TimeMinutesType = u"Time - minutes"_w;
[[gnu::init_priority(200)]] const utility::wstring TimeMsType = u"Time - ms"_w;
[[gnu::init_priority(200)]] const utility::wstring TimeSecondsType = u"Time - seconds"_w;
[[gnu::init_priority(200)]] const utility::wstring TMgrActionIdType = u"TMgr - Action ID"_w;
[[gnu::init_priority(200)]] const utility::wstring TMgrInputIdType = u"TMgr - Input ID"_w;
[[gnu::init_priority(200)]] const utility::wstring TokenType = u"Token"_w;
[[gnu::init_priority(200)]] const utility::wstring ValidityBitsType = u"ValidityBits"_w;
[[gnu::init_priority(200)]] const utility::wstring VoltageVType = u"Voltage - V"_w;
[[gnu::init_priority(200)]] const utility::wstring P25IdentType = u"P25Ident"_w;
[[gnu::init_priority(200)]] const utility::wstring P25TalkGroupType = u"P25TalkGroup"_w;
[[gnu::init_priority(200)]] const utility::wstring LossRateType = u"LossRate"_w;
[[gnu::init_priority(200)]] const utility::wstring BerType = u"BER"_w;
[[gnu::init_priority(200)]] const utility::wstring HostNameType = u"HostName"_w;
[[gnu::init_priority(200)]] const utility::wstring TimeUsType = u"Time - us"_w;
[[gnu::init_priority(200)]] const utility::wstring FrequencyOffsetHzType = u"FrequencyOffset - Hz"_w;
[[gnu::init_priority(200)]] const utility::wstring VirtualTagType = u"VirtualTag"_w;
[[gnu::init_priority(200)]] const utility::wstring EnumType = u"Enum -"_w;
[[gnu::init_priority(200)]] const utility::wstring LevelType = u"Level - "_w;

}  // namespace tag_specification
