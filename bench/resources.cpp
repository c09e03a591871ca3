#include "bench/resources.h"

#include <QDir>

#include <malloc.h>
#include <unistd.h>

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
    result.descriptors =
        QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System).size();
    return result;
}

} // namespace vexmor::Bench
