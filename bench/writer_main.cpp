// A writing process of the benchmark: `writer_<way> <course> <file> <first lane> <threads>`.
#include "course.h"
#include "writer.h"

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

void RunLane(bench::Course& course, bench::Course::Lane& lane, bench::Writer& writer)
{
    ++course.Ready;
    while (course.Go == 0)
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    lane.Begin = bench::Now();
    for (std::uint32_t number = 0; number < course.Records; ++number) {
        if (!writer.Write(static_cast<int>(number)))
            ++course.Failed;
    }
    lane.End = bench::Now();
}

}  // namespace

int main(int count, char** arguments)
{
    if (count != 5)
        return EXIT_FAILURE;
    const bench::SharedCourse shared(arguments[1]);
    bench::Course& course = *shared;
    const auto writer = bench::MakeWriter(arguments[2]);
    const unsigned first = static_cast<unsigned>(std::stoul(arguments[3]));
    const unsigned threads = static_cast<unsigned>(std::stoul(arguments[4]));
    if (writer == nullptr || first + threads > bench::MostLanes)
        return EXIT_FAILURE;

    std::vector<std::thread> others;
    for (unsigned lane = 1; lane < threads; ++lane)
        others.emplace_back([&, lane] { RunLane(course, course.Lanes[first + lane], *writer); });
    RunLane(course, course.Lanes[first], *writer);
    for (std::thread& other : others)
        other.join();
    return EXIT_SUCCESS;
}
