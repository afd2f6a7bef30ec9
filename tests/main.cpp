#include "processes.h"

int main(int count, char** arguments)
{
    testing::InitGoogleTest(&count, arguments);
    return support::StartedAnew() ? support::RunStarted() : RUN_ALL_TESTS();
}
