// The `main` of every test program.
#include "testkit/test_process.h"

int main(int count, char** arguments)
{
    testing::InitGoogleTest(&count, arguments);
    return testkit::IsTestProcess() ? testkit::RunTestProcess() : RUN_ALL_TESTS();
}
