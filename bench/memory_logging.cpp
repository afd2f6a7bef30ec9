// A program that opens the log, writes to it and prints its peak memory.
#include "peak_memory.h"

#include "tessmaru/log.h"
#include "tessmaru/text.h"

#include <cstdio>

using namespace utility::literals;

int main()
{
    utilities::CLog* log = utilities::CLog::GetInstance();
    if (log == nullptr)
        return 1;
    for (int number = 0; number < 10000; ++number)
        log->LogInfo(u"%d sites read from %s, done"_w, u"Import"_w, number, u"North.mdb"_w);
    std::printf("%ld\n", bench::PeakMemory());
    return 0;
}
