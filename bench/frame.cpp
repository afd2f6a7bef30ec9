// Frames: both directions to a copy of the frame and to the plain form, and the key of a password.
#include "rows.h"

#include "frame/cipher.h"
#include "tessmaru/frame.h"

#include <cstring>

namespace bench {
namespace {

constexpr ULONG key = 0x9D3A5C77;

/// A frame that is scrambled again and again, in place.
struct Frame {
    explicit Frame(unsigned length) : Length(length), Bytes(length, 'x') {}

    unsigned Length;
    std::vector<unsigned char> Bytes;
};

/// How many of a call fit into the time of a round.
unsigned CallsFor(const Plan& plan, unsigned length)
{
    return plan.Calls * 10 / (length + 100) + 1;
}

template <class Other, class Call>
void PrintPair(const Plan& plan, const std::string& what, unsigned length, Other other, Call call, double goal)
{
    Frame one(length);
    Frame two(length);
    const auto slow = [&](unsigned) { other(one); };
    const auto fast = [&](unsigned) { call(two.Bytes.data(), two.Length, key); };
    PrintRow(what + ", " + std::to_string(length) + " bytes", Compare(slow, fast, CallsFor(plan, length), plan.Rounds),
             {0, goal});
}

}  // namespace

void MeasureFrames(const Plan& plan, const tools::ScratchFolder&)
{
    constexpr unsigned longest = 65535;
    constexpr unsigned usual = 1500;
    constexpr unsigned small = 64;
    PrintHeading("Frames");
    std::vector<unsigned char> copied(longest);
    const auto copy = [&](Frame& from) {
        std::memcpy(copied.data(), from.Bytes.data(), from.Length);
        Use(copied[0]);
    };
    const auto encrypt = [](Frame& frame) { frame::EncryptPlain(frame.Bytes.data(), frame.Length, key); };
    const auto decrypt = [](Frame& frame) { frame::DecryptPlain(frame.Bytes.data(), frame.Length, key); };
    PrintPair(plan, "memcpy, to encrypt", longest, copy, utility::encryptFrame, 0.9);
    PrintPair(plan, "memcpy, to decrypt", longest, copy, utility::decryptFrame, 0.45);
    PrintPair(plan, "plain loop, to encrypt", usual, encrypt, utility::encryptFrame, 12);
    PrintPair(plan, "plain loop, to decrypt", usual, decrypt, utility::decryptFrame, 6);
    PrintPair(plan, "plain loop, to encrypt", small, encrypt, utility::encryptFrame, 1);
    PrintPair(plan, "plain loop, to decrypt", small, decrypt, utility::decryptFrame, 1);

    const utility::wstring password = {'s', 'e', 'c', 'r', 'e', 't', '!', '?'};
    PrintRow("key of a password, to a copy of the password",
             Compare([&](unsigned) { Use(utility::genEncryptKeyFromPassword(password)); },
                     [&](unsigned) { Use(utility::wstring(password)); }, plan.Calls, plan.Rounds),
             {});
}

}  // namespace bench
