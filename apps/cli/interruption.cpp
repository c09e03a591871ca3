#include "apps/cli/interruption.h"

#include "apps/cli/exitCodes.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace vexmor::Apps
{
namespace
{
/// Sets the handler of the signals, except for SIGHUP if it is ignored, as it is in programs that nohup starts.
void handleSignals(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction present = {};
        sigaction(number, nullptr, &present);
        if (number != SIGHUP || present.sa_handler != SIG_IGN) {
            sigaction(number, &action, nullptr);
        }
    }
}
} // namespace

int CInterruption::s_writeEnd = -1;
unsigned int CInterruption::s_seconds = 0;

CInterruption::CInterruption(QObject* parent, unsigned int seconds) : QObject(parent)
{
    s_seconds = seconds;
    if (seconds > 0) {
        std::signal(SIGALRM, [](int /*number*/) { _exit(eDone); });
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        return;
    }
    m_readEnd = ends[0];
    s_writeEnd = ends[1];
    auto* const notifier = new QSocketNotifier(m_readEnd, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &CInterruption::onWakeUp);

    handleSignals(&CInterruption::onSignal);
}

CInterruption::~CInterruption()
{
    handleSignals(SIG_DFL);
    close(m_readEnd);
    close(s_writeEnd);
}

void CInterruption::onSignal(int /*number*/)
{
    const int savedErrno = errno;
    handleSignals(SIG_DFL); // the second signal, whichever it is, ends the program
    if (s_seconds > 0) {
        alarm(s_seconds);
    }
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = write(s_writeEnd, &byte, 1);
    errno = savedErrno;
}

void CInterruption::onWakeUp()
{
    char byte = 0;
    [[maybe_unused]] const ssize_t taken = read(m_readEnd, &byte, 1);
    Q_EMIT interrupted();
}

} // namespace vexmor::Apps
