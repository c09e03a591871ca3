#include "bench/measuring.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace vexmor::Bench
{

double nanoseconds(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

namespace
{
/// Returns the value below which `share` (0 to 1) of the values lie, interpolated between two values.
double quantile(Values values, double share)
{
    std::sort(values.begin(), values.end());
    const double at = share * static_cast<double>(values.size() - 1);
    const auto below = static_cast<std::size_t>(at);
    const std::size_t above = std::min(below + 1, values.size() - 1);
    return values[below] + (at - static_cast<double>(below)) * (values[above] - values[below]);
}

} // namespace

double median(const Values& values)
{
    return values.empty() ? 0 : quantile(values, 0.5);
}

std::string text(const char* format, ...)
{
    char buffer[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    return buffer;
}

std::string figure(double value)
{
    const double size = std::fabs(value);
    return text("%.*f", size >= 100 ? 0 : size >= 10 ? 1 : 2, value);
}

std::string ratio(const Values& of, const Values& to)
{
    if (of.empty() || to.empty()) {
        return "";
    }
    Values ratios(of.size());
    std::transform(of.begin(), of.end(), to.begin(), ratios.begin(), std::divides<>());
    return figure(median(ratios)) + " (" + figure(quantile(ratios, 0.25)) + "-" + figure(quantile(ratios, 0.75)) + ")";
}

bool holds(const char* promise, bool isTrue)
{
    if (!isTrue) {
        std::fprintf(stderr, "NO: %s\n", promise);
    }
    return isTrue;
}

SResources resources()
{
    SResources result;
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages; // the second number: resident pages
    result.residentKib = static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
    const struct mallinfo2 heap = mallinfo2();
    result.heapKib = static_cast<double>(heap.uordblks + heap.hblkhd) / 1024;
    result.descriptors = static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
    return result;
}

std::string textOf(const SResources& resources)
{
    return text("memory %.0f KiB, heap %.0f KiB, descriptors %d", resources.residentKib, resources.heapKib,
                resources.descriptors);
}

bool isFlat(const SResources& grown, double memoryLimitKib)
{
    return holds("memory and descriptors do not grow", grown.residentKib < memoryLimitKib && grown.descriptors <= 0);
}

void printHead(const std::vector<std::string>& cells)
{
    std::vector<std::string> rule(cells.size(), "---:");
    rule[0] = "---";
    std::printf("\n");
    printRow(cells);
    printRow(rule);
}

void printRow(const std::vector<std::string>& cells)
{
    std::printf("| %-50s |", cells[0].c_str());
    std::for_each(cells.begin() + 1, cells.end(), [](const auto& cell) { std::printf(" %16s |", cell.c_str()); });
    std::printf("\n");
    std::fflush(stdout);
}

} // namespace vexmor::Bench
