// A Java virtual machine as the host program: it handles faults of the code that it generates.
#include "tessmaru/structured_exception.h"
#include "testkit/faulting_calls.h"

#include <gtest/gtest.h>

#include <initializer_list>

#include <jni.h>
#include <unistd.h>

using testkit::Invoke;
using testkit::ReadNull;

namespace {

/// Starts the machine, which also installs its signal handlers.
JNIEnv* StartMachine()
{
    char heap[] = "-Xmx256m";
    JavaVMOption option{heap, nullptr};
    JavaVMInitArgs arguments{JNI_VERSION_1_8, 1, &option, JNI_FALSE};
    JavaVM* machine = nullptr;
    void* environment = nullptr;
    return JNI_CreateJavaVM(&machine, &environment, &arguments) == JNI_OK ? static_cast<JNIEnv*>(environment) : nullptr;
}

/// Compiled and interpreted code, each with many null pointers and safepoints, for which the machine lets itself fault.
void RunJava(JNIEnv& java)
{
    const jclass system = java.FindClass("java/lang/System");
    const jmethodID collect = java.GetStaticMethodID(system, "gc", "()V");
    const jclass strings = java.FindClass("java/lang/String");
    const jmethodID concat = java.GetMethodID(strings, "concat", "(Ljava/lang/String;)Ljava/lang/String;");
    const jstring text = java.NewStringUTF("text");
    int exceptions = 0;
    for (int round = 0; round < 20000; ++round) {
        java.CallObjectMethod(text, concat, nullptr);
        exceptions += java.ExceptionCheck();
        java.ExceptionClear();
        if (round % 2000 == 0)
            java.CallStaticVoidMethod(system, collect);
    }
    EXPECT_EQ(exceptions, 20000);
}

void ExpectBothToWork(JNIEnv* java)
{
    ASSERT_NE(java, nullptr);
    for (int round = 0; round < 3; ++round) {
        RunJava(*java);
        EXPECT_THROW(Invoke(ReadNull), structured_exception);
    }
}

template <class Work>
[[noreturn]] void RunAndExit(Work work)
{
    work();
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(JavaHost, RunsOnAThreadWithATranslator)
{
    EXPECT_EXIT(RunAndExit([] {
                    JNIEnv* const java = StartMachine();
                    const InstallSETranslator translator;
                    ExpectBothToWork(java);
                }),
                testing::ExitedWithCode(0), "");
}

TEST(JavaHost, MayStartAfterTheTranslator)
{
    EXPECT_EXIT(RunAndExit([] {
                    InstallSETranslator translator;
                    JNIEnv* const java = StartMachine();
                    translator.install();
                    ExpectBothToWork(java);
                }),
                testing::ExitedWithCode(0), "");
}

}  // namespace
