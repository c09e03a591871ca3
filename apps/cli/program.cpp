#include "apps/cli/program.h"

#include "apps/cli/exitCodes.h"

#include <QCoreApplication>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

namespace vexmor::Apps
{
namespace
{
void keepStandardDescriptors()
{
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDONLY); // opens the lowest free descriptor, to which writing fails
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    close(descriptor);
}
} // namespace

int runProgram(const char* prefix, const std::function<int()>& program)
{
    QCoreApplication::setOrganizationName(QStringLiteral("Vexmor"));
    QCoreApplication::setApplicationName(QStringLiteral("Cim"));
    keepStandardDescriptors();
    std::signal(SIGPIPE, SIG_IGN); // writing to a closed pipe fails instead of ending the program
    try {
        const int exitCode = program();
        if (exitCode != eDone || flushOutput()) {
            return exitCode;
        }
        std::fprintf(stderr, "%s: the output cannot be written\n", prefix);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", prefix, error.what());
    }
    return eRefused;
}

int fail(const char* prefix, const SProblem& problem)
{
    std::fprintf(stderr, "%s: %s\n", prefix, qPrintable(problem.text));
    return exitCodeOf(problem);
}

QString printableText(QString text)
{
    std::replace_if(
        text.begin(), text.end(), [](QChar one) { return !one.isPrint(); }, QLatin1Char('?'));
    return text;
}

bool flushOutput()
{
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

} // namespace vexmor::Apps
