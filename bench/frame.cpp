// Measures frames, in both directions, to a copy of the frame and to the plain form; and the key of a password.
#include "rows.h"

#include "frame/cipher.h"
#include "tessmaru/frame.h"

#include <cstring>

namespace bench {
namespace {

constexpr ULONG key = 0x9D3A5C77;

/// A frame that is scrambled repeatedly in place.
struct Frame {
    explicit Frame(unsigned length) : Length(length), Bytes(length, 'x') {}

    unsigned Length;
    std::vector<unsigned char> Bytes;
};

/// The number of calls that fill a round.
unsigned CallsFor(const Plan& plan, unsigned length)
{
    return plan.Calls * 10 / (length + 100) + 1;
}

/// One way to scramble or restore a frame, to another.
template <class Other, class Call>
void PrintPair(const Plan& plan, const std::string& what, unsigned length, Other other, Call call, double goal)
{
    Frame one(length);
    Frame two(length);
    PrintRow(what + ", " + std::to_string(length) + " bytes",
             Compare([&](unsigned) { other(one); }, [&](unsigned) { call(two); }, CallsFor(plan, length), plan.Rounds),
             {0, goal});
}

auto By(frame::Transform* transform)
{
    return [transform](Frame& frame) { transform(frame.Bytes.data(), frame.Length, key); };
}

/// Each form must pay off on long frames. Its cost on short ones is shown without a goal.
void CompareForms(const Plan& plan, unsigned length, double goal)
{
    if (!__builtin_cpu_supports("ssse3"))
        return;
    PrintPair(plan, "plain loop, to encrypt by SSSE3", length, By(frame::EncryptPlain), By(frame::EncryptSsse3), goal);
    PrintPair(plan, "plain loop, to decrypt by SSSE3", length, By(frame::DecryptPlain), By(frame::DecryptSsse3), goal);
    if (!__builtin_cpu_supports("avx2"))
        return;
    PrintPair(plan, "SSSE3, to encrypt by AVX2", length, By(frame::EncryptSsse3), By(frame::EncryptAvx2), goal);
    PrintPair(plan, "SSSE3, to decrypt by AVX2", length, By(frame::DecryptSsse3), By(frame::DecryptAvx2), goal);
}

}  // namespace

void MeasureFrames(const Plan& plan, const testkit::ScratchFolder&)
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
    const auto encrypt = [](Frame& frame) { utility::encryptFrame(frame.Bytes.data(), frame.Length, key); };
    const auto decrypt = [](Frame& frame) { utility::decryptFrame(frame.Bytes.data(), frame.Length, key); };
    PrintPair(plan, "memcpy, to encrypt", longest, copy, encrypt, 0.9);
    PrintPair(plan, "memcpy, to decrypt", longest, copy, decrypt, 0.45);
    PrintPair(plan, "plain loop, to encrypt", usual, By(frame::EncryptPlain), encrypt, 12);
    PrintPair(plan, "plain loop, to decrypt", usual, By(frame::DecryptPlain), decrypt, 6);
    PrintPair(plan, "plain loop, to encrypt", small, By(frame::EncryptPlain), encrypt, 1);
    PrintPair(plan, "plain loop, to decrypt", small, By(frame::DecryptPlain), decrypt, 1);
    CompareForms(plan, longest, 1);
    CompareForms(plan, small, 0);

    const utility::wstring password = {'s', 'e', 'c', 'r', 'e', 't', '!', '?'};
    PrintRow("key of a password, to a copy of the password",
             Compare([&](unsigned) { Use(utility::genEncryptKeyFromPassword(password)); },
                     [&](unsigned) { Use(utility::wstring(password)); }, plan.Calls, plan.Rounds),
             {});
}

}  // namespace bench
