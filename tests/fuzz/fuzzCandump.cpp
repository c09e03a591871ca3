// Reads any file as a log. The reader must reach an end, and each entry must stay the same when it is written and read
// again.
#include "canlog/candumpLog.h"
#include "fuzz/require.h"

#include <sys/mman.h>
#include <unistd.h>

using namespace vexmor::CanLog;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    const int file = memfd_create("log", MFD_CLOEXEC);
    require(write(file, bytes, count) == static_cast<ssize_t>(count));
    CLogReader reader;
    require(!reader.open(QStringLiteral("/proc/self/fd/%1").arg(file)));
    for (auto next = reader.next(); next && *next; next = reader.next()) {
        const SLogEntry& entry = **next;
        const QByteArray line = formatLogLine(entry);
        auto again = parseLogLine(line);
        require(again && *again);
        require(formatLogLine(**again) == line);
        require((*again)->microseconds == entry.microseconds);
        require((*again)->message == entry.message);
        formatDump(entry.interfaceName, entry.message);
    }
    close(file);
    return 0;
}
