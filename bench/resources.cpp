#include "bench/resources.h"

#include <QCoreApplication>
#include <QDir>
#include <QSettings>

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

CPrivateSettings::CPrivateSettings()
    : m_directory((QDir(QStringLiteral("/dev/shm")).exists() ? QStringLiteral("/dev/shm") : QDir::tempPath()) +
                  QStringLiteral("/cim-XXXXXX"))
{
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_directory.path());
    QCoreApplication::setOrganizationName(QStringLiteral("bench"));
    QCoreApplication::setApplicationName(QStringLiteral("bench"));
}

} // namespace vexmor::Bench
