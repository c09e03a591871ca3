#pragma once

#include <ctime>
#include <string>
#include <vector>

/// Time, figures, resources, and tables to print them in.
namespace vexmor::Bench
{

double nanoseconds(clockid_t clock);

/// What an action takes, in ns: CPU time of this process, and time on the wall.
struct SCost {
    double cpu = 0;
    double wall = 0;
};

template <typename Action>
SCost costOf(Action&& action)
{
    const double wall = nanoseconds(CLOCK_MONOTONIC);
    const double cpu = nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
    action();
    const double cpuAfter = nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
    return {cpuAfter - cpu, nanoseconds(CLOCK_MONOTONIC) - wall};
}

template <typename Action>
void repeat(int times, Action&& action)
{
    for (int i = 0; i < times; ++i) {
        action();
    }
}

/// What was measured of one thing, one value per round.
using Values = std::vector<double>;

/// 0 when there are no values.
double median(const Values& values);

/// As printf.
std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// A figure with about three digits that count.
std::string figure(double value);
/// The ratios round by round, since what else the machine does meets both sides of a round alike: the median and where
/// the middle half lies, "1.40 (1.36-1.44)". Empty when a side was not measured.
std::string ratio(const Values& of, const Values& to);

/// Prints a promise that does not hold; returns whether it holds.
bool holds(const char* promise, bool isTrue);

/// What this process holds now.
struct SResources {
    double residentKib = 0;
    double heapKib = 0; ///< allocated and not freed
    int descriptors = 0;

    SResources operator-(const SResources& before) const
    {
        return {residentKib - before.residentKib, heapKib - before.heapKib, descriptors - before.descriptors};
    }
};
SResources resources();
/// "memory 1 KiB, heap 2 KiB, descriptors 3"
std::string textOf(const SResources& resources);
/// Returns whether a process that has grown by so much is flat; prints when it is not.
bool isFlat(const SResources& grown, double memoryLimitKib);

// A table in Markdown, whose first column is text and whose others are figures. Each row is printed as it comes.
void printHead(const std::vector<std::string>& cells);
void printRow(const std::vector<std::string>& cells);

} // namespace vexmor::Bench
