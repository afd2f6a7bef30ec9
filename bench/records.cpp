// Measures whole records, written by one thread, by four processes and by four threads. Each way to write has its own
// program, which starts again for each run on a new file. Only the writing is timed.
#include "rows.h"

#include "testkit/process_family.h"

#include <chrono>
#include <cstdio>
#include <iterator>
#include <thread>

namespace bench {
namespace {

struct Shape {
    const char* Name;
    unsigned Processes;
    unsigned Threads;
};

constexpr Shape Shapes[] = {
    {"1 process x 1 thread", 1, 1}, {"4 processes x 1 thread", 4, 1}, {"1 process x 4 threads", 1, 4}};

struct Way {
    const char* Program;
    const char* Name;
    std::vector<double> Nanoseconds{};  // for a record, round by round
    double Bytes = 0;                   // of a record, from the size of the last run's file
};

/// One run of one way. @return nanoseconds for a record.
double RunOnce(Way& way, const Shape& shape, const Plan& plan, const std::filesystem::path& scratch)
{
    const std::string program = Neighbour(way.Program);
    const testkit::ScratchFolder folder(scratch);
    const std::filesystem::path log = folder / "App.log";
    MakeStore(folder / "registry.reg", log, 0);
    const SharedCourse shared(folder / "course");
    Course& course = *shared;
    const unsigned lanes = shape.Processes * shape.Threads;
    course.Records = plan.Records / lanes;

    testkit::ProcessFamily family(program);
    for (unsigned process = 0; process < shape.Processes; ++process) {
        family.Start({(folder / "course").string(), log.string(), std::to_string(process * shape.Threads),
                      std::to_string(shape.Threads)});
    }
    while (course.Ready < lanes) {
        if (!family.AllRun())
            throw std::runtime_error(program + " does not start");
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    course.Go = 1;
    const bool succeeded = family.End() && course.Failed == 0;
    std::int64_t begin = course.Lanes[0].Begin;
    std::int64_t end = course.Lanes[0].End;
    for (unsigned lane = 1; lane < lanes; ++lane) {
        begin = std::min(begin, course.Lanes[lane].Begin);
        end = std::max(end, course.Lanes[lane].End);
    }
    const double records = static_cast<double>(course.Records) * lanes;
    way.Bytes = static_cast<double>(std::filesystem::file_size(log)) / records;
    if (!succeeded)
        throw std::runtime_error(program + " could not write all its records");
    return static_cast<double>(end - begin) / records;
}

Comparison CompareWays(const Way& subject, const Way& floor)
{
    std::vector<double> ratios;
    for (std::size_t round = 0; round < floor.Nanoseconds.size(); ++round)
        ratios.push_back(subject.Nanoseconds[round] / floor.Nanoseconds[round]);
    return {SpreadOf(subject.Nanoseconds), SpreadOf(floor.Nanoseconds), SpreadOf(ratios)};
}

void MeasureShape(const Shape& shape, const Plan& plan, const testkit::ScratchFolder& scratch)
{
    const bool alone = shape.Processes * shape.Threads == 1;
    // A seek and a write of several writers overwrite each other's records, so their floor is an append.
    Way bare = alone ? Way{"writer_seek", "a bare seek and write"} : Way{"writer_append", "a bare append"};
    Way log{"writer_tessmaru", "the log"};
    Way peers[] = {{"writer_log4cplus", "log4cplus"}, {"writer_spdlog", "spdlog"}};
    std::vector<Way*> ways = {&bare, &log};
    for (Way& peer : peers) {
        if (!Neighbour(peer.Program).empty())
            ways.push_back(&peer);
    }
    for (unsigned round = 0; round <= plan.Rounds; ++round) {
        std::reverse(ways.begin(), ways.end());
        for (Way* way : ways) {
            const double time = RunOnce(*way, shape, plan, scratch.path());
            if (round != 0)
                way->Nanoseconds.push_back(time);
        }
    }

    PrintHeading(shape.Name);
    std::printf("bytes of the file a record:");
    for (const Way* way : ways)
        std::printf("  %s %.0f", way->Name, way->Bytes);
    std::printf("\n");
    PrintRow(std::string("a record, to ") + bare.Name, CompareWays(log, bare), alone ? Goal{1.08, 0} : Goal{});
    // spdlog takes no lock between processes.
    const Goal goals[] = {{0, 2.8}, {0, shape.Processes > 1 ? 0.75 : 1}};
    for (std::size_t i = 0; i < std::size(peers); ++i) {
        if (peers[i].Nanoseconds.empty())
            std::printf("%s is not here\n", peers[i].Name);
        else
            PrintRow(std::string(peers[i].Name) + ", to a record of the log", CompareWays(peers[i], log), goals[i]);
    }
}

}  // namespace

void MeasureRecords(const Plan& plan, const testkit::ScratchFolder& scratch)
{
    for (const Shape& shape : Shapes)
        MeasureShape(shape, plan, scratch);
}

}  // namespace bench
