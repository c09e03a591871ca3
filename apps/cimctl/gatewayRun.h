#pragma once

#include "apps/cimctl/command.h"
#include "apps/cimctl/summary.h"
#include "apps/cimctl/target.h"
#include "apps/common/hostedInterface.h"
#include "apps/common/interruption.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QObject>

namespace vexmor::Apps::Cimctl
{

/// What all commands that talk to a gateway share: an open interface, until something ends the run (a limit, Ctrl-C,
/// the end of a log that the simulated gateway plays, an output that takes nothing), and its summary.
class CGatewayRun : public QObject
{
public:
    /// Finds the gateway, opens nothing yet. Ctrl-C ends the run with `onInterruption`. Throws a problem when there is
    /// no such gateway.
    CGatewayRun(SContext& context, const STargetOptions& target, EExitCode onInterruption);

    COutput& output() { return m_context.output; }
    CHostedInterface& hosted() { return m_interface; }
    CSummary& summary() { return m_summary; }

    /// Opens the interface and lets the simulated gateway's traffic begin. The run ends after so many seconds; 0: it
    /// does not by itself. Throws the interface's code and text when it does not open.
    void open(double seconds);
    /// Time since the interface is open.
    qint64 openMilliseconds() const { return m_sinceOpen.elapsed(); }
    /// Ends the run; the first call counts.
    void end(EExitCode exitCode);
    /// Waits for the end, prints the summary, and gives the exit code.
    EExitCode waitForEnd();
    /// What the interface says of one of its codes.
    SProblem problemOf(int code);

private:
    void reportError(int error);
    void onLogEnded(const QString& error);

    SContext& m_context;
    const CInterruption m_interruption;
    const CTarget m_target;
    CHostedInterface m_interface;
    CSummary m_summary;
    QElapsedTimer m_sinceOpen;
    QEventLoop m_loop;
    bool m_ended = false;
    EExitCode m_exitCode = eDone;
};

} // namespace vexmor::Apps::Cimctl
