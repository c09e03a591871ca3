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
    QString error;
    if (!reader.open(QStringLiteral("/proc/self/fd/%1").arg(file), error)) {
        std::abort();
    }
    for (SLogEntry entry; reader.next(entry, error);) {
        SLogEntry again;
        const QByteArray line = formatLogLine(entry);
        if (parseLogLine(line, again, error) != ELine::eFrame || formatLogLine(again) != line ||
            again.microseconds != entry.microseconds || !(again.message == entry.message)) {
            std::abort();
        }
        formatDump(entry.interfaceName, entry.message);
    }
    close(file);
    return 0;
}
