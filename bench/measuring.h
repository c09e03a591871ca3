#pragma once

#include <ctime>
#include <string>
#include <vector>

/// Time, figures, resources, and tables to print them in.
namespace vexmor::Bench
{

double nanoseconds(clockid_t clock);

/// The cost of an action in ns: CPU time of this process, and elapsed time.
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

/// The measured values of one quantity, one per round.
using Values = std::vector<double>;

/// Returns the median, or 0 without values.
double median(const Values& values);

/// Returns a text that is formatted as by printf.
std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// Returns a number with about three significant digits.
std::string figure(double value);
/// Returns the median of the ratios of all rounds, and the range of the middle half: "1.40 (1.36-1.44)". Other load on
/// the machine affects both sides of a round alike. Empty when a side was not measured.
std::string ratio(const Values& of, const Values& to);

/// Returns `isTrue`, and prints the promise when it is false.
bool holds(const char* promise, bool isTrue);

/// The resources that this process uses.
struct SResources {
    double residentKib = 0;
    double heapKib = 0; ///< Memory that is allocated and not freed.
    int descriptors = 0;

    SResources operator-(const SResources& before) const
    {
        return {residentKib - before.residentKib, heapKib - before.heapKib, descriptors - before.descriptors};
    }
};
SResources resources();
/// Returns a text like "memory 1 KiB, heap 2 KiB, descriptors 3".
std::string textOf(const SResources& resources);
/// Returns true when a process has grown by less than the limit and has gained no descriptors. Otherwise prints a line.
bool isFlat(const SResources& grown, double memoryLimitKib);

// A table in Markdown with a first column of text and further columns of numbers. Each row is printed at once.
void printHead(const std::vector<std::string>& cells);
void printRow(const std::vector<std::string>& cells);

} // namespace vexmor::Bench
