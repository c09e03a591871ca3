#include "sim/commandLine.h"

#include <QStringList>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace vexmor::Sim
{

void keepStandardDescriptors()
{
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDONLY); // the lowest that is free
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    close(descriptor);
}

bool flushOutput()
{
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

QString plainAddress(const QString& typed)
{
    QStringList numbers = typed.split(QLatin1Char('.'));
    for (QString& number : numbers) {
        bool ok = false;
        const unsigned int value = number.toUInt(&ok);
        // toUInt alone would also take blanks and signs.
        if (!ok || value > 0xFF || !number.front().isDigit() || !number.back().isDigit()) {
            return {};
        }
        number = QString::number(value);
    }
    return numbers.size() == 4 ? numbers.join(QLatin1Char('.')) : QString();
}

} // namespace vexmor::Sim
