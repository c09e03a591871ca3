#pragma once

#include "apps/cimctl/output.h"
#include "apps/cimctl/session.h"
#include "apps/cimctl/target.h"
#include "apps/common/failure.h"
#include "sim/interruption.h"

#include <QEventLoop>
#include <QObject>

namespace vexmor::Apps::Cimctl
{

/// What all commands that talk to a gateway share: an open session that lasts until something ends it (a limit, Ctrl-C,
/// the end of a log that the simulated gateway plays, an output that takes nothing), and its summary.
class CGatewayRun : public QObject
{
public:
    /// Finds the gateway, opens nothing yet. Ctrl-C ends the run with `onInterruption`. `output` must outlive the run.
    CGatewayRun(COutput& output, const STargetOptions& target, EExitCode onInterruption);

    COutput& output() { return m_output; }
    CSession& session() { return m_session; }

    /// Opens the interface and lets the simulated gateway's traffic begin. The run ends after so many seconds; 0: it
    /// does not by itself. Fails as CSession::open does.
    void open(double seconds);
    /// Ends the run; the first call counts.
    void end(EExitCode exitCode);
    /// Waits for the end, prints the summary, and gives the exit code.
    EExitCode waitForEnd();

private:
    void reportError(int error);
    void onLogEnded(const QString& error);

    COutput& m_output;
    const Sim::CInterruption m_interruption;
    const CTarget m_target;
    CSession m_session;
    QEventLoop m_loop;
    bool m_ended = false;
    EExitCode m_exitCode = eDone;
};

} // namespace vexmor::Apps::Cimctl
