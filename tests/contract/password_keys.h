// The keys of passwords in each code page that can be active on Windows, as the library makes them there.
#pragma once

#include "system.h"
#include "tessmaru/text.h"

namespace contract {

/// Passwords whose characters most pages lack: with best fit, without a character for a byte, for private use.
inline const utility::wstring Passwords[] = {{0x141, 0xF3, 'd', 0x17A, '1', '2', '3', '4'},
                                             {0xFF30, 0xFF41, 0xFF53, 0xFF53, 0x2212, 0x221E},
                                             {'k', 0x81, 0x9D, 0xA5},
                                             {0xE4, 0xF6, 0xE000, 0x2550}};

struct PasswordKeys {
    UINT Page;
    ULONG Keys[4];
};

inline constexpr PasswordKeys KeysOfPasswords[] = {
    {874, {0x6D5716A7, 0xA97EC4D4, 0x444BA808, 0x834DD211}},  {932, {0x4E82FF10, 0x6E39352A, 0xBE47218D, 0x49FC0210}},
    {936, {0xDD6EF095, 0x8843CA0E, 0x7423E601, 0x9224CFAD}},  {949, {0x84E88BD8, 0x8843CA0E, 0x0EE3B561, 0x7F3DBA1A}},
    {950, {0x4E82FF10, 0x59551F74, 0x4943CFB1, 0xE8672176}},  {1250, {0x6EE2DD70, 0x536E5BC0, 0x06ED9A00, 0xC98B325E}},
    {1251, {0xFC4EBE5A, 0xA97EC4D4, 0x60D52C10, 0xA8008A0F}}, {1252, {0xD426A212, 0x56214D45, 0xDFFD97B9, 0xA96BA5DC}},
    {1253, {0xFC4EBE5A, 0xA97EC4D4, 0xDFFD97B9, 0xA8008A0F}}, {1254, {0xD426A212, 0x536E5BC0, 0xDFFD97B9, 0xC98B325E}},
    {1255, {0x6D5716A7, 0xA97EC4D4, 0xDFFD97B9, 0xB1B9D12C}}, {1256, {0x6D5716A7, 0xA97EC4D4, 0xFB6313A1, 0xB1B9D12C}},
    {1257, {0x62403F97, 0xA97EC4D4, 0x109F18ED, 0xB34B613E}}, {1258, {0x66EAE358, 0xA97EC4D4, 0xDFFD97B9, 0xB34B613E}}};

}  // namespace contract
