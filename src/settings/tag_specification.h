// The vocabulary of the tag specification: names of its columns and of the data types of its tags.
//
// Every module that includes this has read-only constants of its own, in this order; nothing is exported.
// Column names are table, point, column; a type's unit or notation stands behind a dash. The last two texts
// end open.
#pragma once

#include "tessmaru/text.h"

using utility::literals::operator""_w;

const utility::wstring EmptyString;

const utility::wstring SpecDatatypeColumn = u"SPEC.Datatype"_w;
const utility::wstring SpecMinColumn = u"SPEC.Min"_w;
const utility::wstring SpecMaxColumn = u"SPEC.Max"_w;
const utility::wstring SpecStepColumn = u"SPEC.Step"_w;
const utility::wstring SpecBytesColumn = u"SPEC.Bytes"_w;
const utility::wstring SpecPrsColumn = u"SPEC.PRS"_w;
const utility::wstring SpecSfeColumn = u"SPEC.SFE"_w;
const utility::wstring SpecRemovedColumn = u"SPEC.Removed"_w;
const utility::wstring SpecEnumColumn = u"SPEC.Enum"_w;
const utility::wstring SpecDecimalPlacesColumn = u"SPEC.Decimal Places"_w;
const utility::wstring SpecUnitsColumn = u"SPEC.Units"_w;
const utility::wstring SpecDefaultValueColumn = u"SPEC.DefaultValue"_w;
const utility::wstring ProtocolDatatypeColumn = u"Protocol.Datatype"_w;
const utility::wstring TagServerVariantColumn = u"TagServer.Variant"_w;
const utility::wstring TagServerTagTypeColumn = u"TagServer.TagType"_w;
const utility::wstring TagServerReadWriteFlagColumn = u"TagServer.ReadWriteFlag"_w;
const utility::wstring ProtocolReadCommandColumn = u"Protocol.ReadCommand"_w;
const utility::wstring ProtocolWriteCommandColumn = u"Protocol.WriteCommand"_w;
const utility::wstring ProtocolDecimalPlacesColumn = u"Protocol.Decimal Places"_w;

const utility::wstring AngleType = u"Angle"_w;
const utility::wstring BinaryType = u"Binary"_w;
const utility::wstring CurrentMaType = u"Current - mA"_w;
const utility::wstring DateIsoType = u"Date - ISO"_w;
const utility::wstring IntegerType = u"Integer"_w;
const utility::wstring IpAddressType = u"IPAddress"_w;
const utility::wstring FlagType = u"Flag"_w;
const utility::wstring FrequencyHzType = u"Frequency - Hz"_w;
const utility::wstring PercentageType = u"Percentage"_w;
const utility::wstring PowerWType = u"Power - W"_w;
const utility::wstring RatioType = u"Ratio"_w;
const utility::wstring StringType = u"String"_w;
const utility::wstring TagType = u"Tag"_w;
const utility::wstring TemperatureType = u"Temperature"_w;
const utility::wstring TimeHoursType = u"Time - hours"_w;
const utility::wstring TimeIsoType = u"Time - ISO"_w;
const utility::wstring TimeMinutesType = u"Time - minutes"_w;
const utility::wstring TimeMsType = u"Time - ms"_w;
const utility::wstring TimeSecondsType = u"Time - seconds"_w;
const utility::wstring TMgrActionIdType = u"TMgr - Action ID"_w;
const utility::wstring TMgrInputIdType = u"TMgr - Input ID"_w;
const utility::wstring TokenType = u"Token"_w;
const utility::wstring ValidityBitsType = u"ValidityBits"_w;
const utility::wstring VoltageVType = u"Voltage - V"_w;
const utility::wstring P25IdentType = u"P25Ident"_w;
const utility::wstring P25TalkGroupType = u"P25TalkGroup"_w;
const utility::wstring LossRateType = u"LossRate"_w;
const utility::wstring BerType = u"BER"_w;
const utility::wstring HostNameType = u"HostName"_w;
const utility::wstring TimeUsType = u"Time - us"_w;
const utility::wstring FrequencyOffsetHzType = u"FrequencyOffset - Hz"_w;
const utility::wstring VirtualTagType = u"VirtualTag"_w;
const utility::wstring EnumType = u"Enum -"_w;
const utility::wstring LevelType = u"Level - "_w;
