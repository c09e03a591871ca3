// Any file read as a log ends, and what was read of it is the same when it is written and read again.
#include "canlog/candumpLog.h"

#include <QString>

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

using namespace vexmor::CanLog;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    const int file = memfd_create("log", MFD_CLOEXEC);
    if (write(file, bytes, count) != static_cast<ssize_t>(count)) {
        std::abort();
    }
    CLogReader reader;
    if (reader.open(QStringLiteral("/proc/self/fd/%1").arg(file))) {
        std::abort();
    }
    for (auto next = reader.next(); next && *next; next = reader.next()) {
        const SLogEntry& entry = **next;
        const QByteArray line = formatLogLine(entry);
        auto again = parseLogLine(line);
        if (!again || !*again || formatLogLine(**again) != line || (*again)->microseconds != entry.microseconds ||
            !((*again)->message == entry.message)) {
            std::abort();
        }
        formatDump(entry.interfaceName, entry.message);
    }
    close(file);
    return 0;
}
