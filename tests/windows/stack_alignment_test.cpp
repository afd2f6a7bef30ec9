// The forms of the cipher on any stack of a caller. Windows aligns the stack to 16 bytes for x86-64, and to only 4 for
// x86-32, but vectors that the compiler keeps there need 16 or 32.
#include "frame/cipher.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace {

struct Call {
    frame::Transform* Transform;
    unsigned char* Bytes;
    std::size_t Count;
    std::uint32_t Key;
};

#ifdef __x86_64__
constexpr std::size_t promised = 16;

[[gnu::noinline]] void CallFurtherDown(std::size_t skipped, const Call& call)
{
    void* const room = __builtin_alloca(skipped);
    asm volatile("" : : "r"(room) : "memory");
    call.Transform(call.Bytes, call.Count, call.Key);
}
#else
constexpr std::size_t promised = 4;

void CallFurtherDown(std::size_t skipped, const Call& call)
{
    asm volatile(
        "movl %%esp, %%esi\n\t"
        "andl $-32, %%esp\n\t"
        "subl %%eax, %%esp\n\t"
        "pushl 12(%%edi)\n\t"
        "pushl 8(%%edi)\n\t"
        "pushl 4(%%edi)\n\t"
        "call *(%%edi)\n\t"
        "movl %%esi, %%esp"
        : "+a"(skipped)
        : "D"(&call)
        : "ecx", "edx", "esi", "cc", "memory");
}
#endif

void ExpectOnEveryStack(frame::Transform* encrypt, frame::Transform* decrypt)
{
    for (const std::size_t count : {40U, 100U, 1000U}) {
        std::vector<unsigned char> plain(count);
        std::iota(plain.begin(), plain.end(), static_cast<unsigned char>(count));
        std::vector<unsigned char> scrambled = plain;
        frame::EncryptPlain(scrambled.data(), count, 0x81C3A5F0);
        for (std::size_t skipped = 0; skipped < 64; skipped += promised) {
            std::vector<unsigned char> frame = plain;
            CallFurtherDown(skipped, {encrypt, frame.data(), count, 0x81C3A5F0});
            EXPECT_EQ(frame, scrambled) << skipped;
            CallFurtherDown(skipped, {decrypt, frame.data(), count, 0x81C3A5F0});
            EXPECT_EQ(frame, plain) << skipped;
        }
    }
}

TEST(StackAlignment, OfThePlatformIsEnoughForTheCipher)
{
    if (__builtin_cpu_supports("ssse3"))
        ExpectOnEveryStack(frame::EncryptSsse3, frame::DecryptSsse3);
    if (__builtin_cpu_supports("avx2"))
        ExpectOnEveryStack(frame::EncryptAvx2, frame::DecryptAvx2);
    ExpectOnEveryStack(frame::Chosen().Encrypt, frame::Chosen().Decrypt);
}

}  // namespace
