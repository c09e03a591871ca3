#include "bench/resources.h"

#include "bench/measuring.h"

#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace vexmor::Bench
{
namespace
{
constexpr double KIB = 1024.0;
}

SResources resources()
{
    SResources result;
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages; // the second number
    result.residentKib = static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE)) / KIB;
    const struct mallinfo2 heap = mallinfo2();
    result.heapKib = static_cast<double>(heap.uordblks + heap.hblkhd) / KIB;
    result.descriptors = static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
    return result;
}

std::string textOf(const SResources& resources)
{
    return text("memory %.0f KiB, heap %.0f KiB, descriptors %d", resources.residentKib, resources.heapKib,
                resources.descriptors);
}

} // namespace vexmor::Bench
