// The frame cipher in all its forms, its checksum, and the key of a password.
#include "tessmaru/frame.h"

#include "contract/password_keys.h"
#include "frame/cipher.h"
#include "frame/crc32.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <vector>

namespace {

using testkit::Wide;
using utility::decryptFrame;
using utility::encryptFrame;
using utility::genEncryptKeyFromPassword;

using Bytes = std::vector<unsigned char>;

constexpr ULONG key = 0x81C3A5F0;

std::uint32_t Crc(std::string_view text)
{
    return frame::calcCrc32(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

TEST(Crc32, HasThePublishedValues)
{
    EXPECT_EQ(Crc("The quick red fox jumped over the lazy brown dog."), 0x378420CFU);
    EXPECT_EQ(Crc("123456789"), 0xCBF43926U);
    EXPECT_EQ(Crc(""), 0U);
}

TEST(PasswordKey, IsTheChecksumOfEightCharacters)
{
    EXPECT_EQ(genEncryptKeyFromPassword(Wide("password")), 0x35C246D5U);
    EXPECT_EQ(genEncryptKeyFromPassword(Wide("password, and more of it")), 0x35C246D5U);
    EXPECT_EQ(genEncryptKeyFromPassword(Wide("abc")), 0xEB2A5F74U);
    EXPECT_EQ(genEncryptKeyFromPassword(Wide("abc") + utility::wstring{0, 'd', 'e'}),
              genEncryptKeyFromPassword(Wide("abc")));
    EXPECT_EQ(genEncryptKeyFromPassword({}), 0x6522DF69U) << "of eight zero bytes";
    EXPECT_NE(genEncryptKeyFromPassword(Wide("passwore")), 0x35C246D5U);
}

/// The key of a short password in a code page, made from the platform's conversion.
ULONG KeyIn(UINT page, const utility::wstring& password)
{
    char narrow[32]{};
    const int units = static_cast<int>(password.size());
    WideCharToMultiByte(page, 0, platform::Wide(password.data()), units, narrow, sizeof narrow, nullptr, nullptr);
    std::fill(narrow + units, narrow + 8, '\0');
    return Crc({narrow, 8});
}

TEST(PasswordKey, DependsOnTheCodePage)
{
    for (const contract::PasswordKeys& row : contract::KeysOfPasswords) {
        for (std::size_t i = 0; i < std::size(row.Keys); ++i)
            EXPECT_EQ(KeyIn(row.Page, contract::Passwords[i]), row.Keys[i]) << row.Page << ' ' << i;
    }
    const utility::wstring& city = contract::Passwords[0];
    EXPECT_EQ(genEncryptKeyFromPassword(city), KeyIn(CP_ACP, city)) << "in the active page";
}

TEST(Frame, BytesComputedByHand)
{
    // The low bytes of the key rotated by 0, 1, 2 and 3 bits: F0, E1, C2, 84.
    Bytes frame = {0x10, 0x20, 0x30, 0xFF};
    EXPECT_EQ(encryptFrame(frame.data(), 4, key), 0);
    EXPECT_EQ(frame, (Bytes{0x00, 0x11, 0x12, 0xB3}));
    EXPECT_EQ(decryptFrame(frame.data(), 4, key), 0);
    EXPECT_EQ(frame, (Bytes{0x10, 0x20, 0x30, 0xFF}));
}

TEST(Frame, UsesTheLowSixteenBitsOfTheLength)
{
    const Bytes plain(65600, 0x5A);
    Bytes frame = plain;
    for (const unsigned int none : {0U, 65536U, 0xFFFF0000U}) {
        encryptFrame(frame.data(), none, key);
        decryptFrame(frame.data(), none, key);
        EXPECT_EQ(frame, plain) << none;
    }
    encryptFrame(nullptr, 0, key);
    decryptFrame(nullptr, 65536, key);
    encryptFrame(frame.data(), 65537, key);
    EXPECT_EQ(frame[0], (0x5A + 0xF0) & 0xFF);
    frame[0] = 0x5A;
    EXPECT_EQ(frame, plain) << "one byte";
}

TEST(Frame, ChangedByteChangesAllLaterBytes)
{
    const Bytes plain(100, 7);
    Bytes frame = plain;
    encryptFrame(frame.data(), 100, key);
    frame[40] = static_cast<unsigned char>(frame[40] + 3);
    decryptFrame(frame.data(), 100, key);
    for (std::size_t i = 0; i < frame.size(); ++i)
        EXPECT_EQ(frame[i], i < 40 ? 7 : i % 2 == 0 ? 10 : 4) << i;
}

/// A form of the cipher, and whether this processor supports it.
struct Form {
    const char* Name;
    frame::Transforms Transforms;
    bool Runs;
};

const Form forms[] = {{"ssse3", {frame::EncryptSsse3, frame::DecryptSsse3}, __builtin_cpu_supports("ssse3") != 0},
                      {"avx2", {frame::EncryptAvx2, frame::DecryptAvx2}, __builtin_cpu_supports("avx2") != 0},
                      {"chosen", frame::Chosen(), true}};

/// Expects that a form changes these bytes as the plain form does, at an address of this alignment, and nothing else.
void ExpectAlike(const Form& form, const Bytes& plain, std::size_t alignment, std::uint32_t withKey)
{
    constexpr std::size_t before = 32;
    Bytes room(before + alignment + plain.size() + 64, 0xEE);
    const auto place = [alignment](Bytes& bytes) { return bytes.data() + before + alignment; };
    std::copy(plain.begin(), plain.end(), place(room));
    const Bytes original = room;
    Bytes scrambled = room;
    frame::EncryptPlain(place(scrambled), plain.size(), withKey);
    form.Transforms.Encrypt(place(room), plain.size(), withKey);
    EXPECT_TRUE(room == scrambled) << form.Name << " encrypts " << plain.size() << " at " << alignment;
    form.Transforms.Decrypt(place(room), plain.size(), withKey);
    EXPECT_TRUE(room == original) << form.Name << " decrypts " << plain.size() << " at " << alignment;
}

TEST(Frame, EveryFormGivesTheSameBytes)
{
    std::uint32_t random = 1;
    const auto next = [&random] { return random = random * 1664525 + 1013904223; };
    const auto bytes = [&](std::size_t count) {
        Bytes made(count);
        for (unsigned char& byte : made)
            byte = static_cast<unsigned char>(next() >> 24);
        return made;
    };
    for (const Form& form : forms) {
        if (!form.Runs)
            continue;
        for (std::size_t count = 0; count < 300; ++count)
            ExpectAlike(form, bytes(count), next() >> 27, next());
        for (std::size_t alignment = 0; alignment < 32; ++alignment)
            ExpectAlike(form, bytes(200 + alignment), alignment, 1U << alignment);
        for (const std::uint32_t withKey : {0U, 0xFFFFFFFFU}) {
            for (const std::size_t count : {1500U, 4096U, 65503U, 65535U})
                ExpectAlike(form, bytes(count), 7, withKey);
        }
    }
}

}  // namespace
