#pragma once

#include "apps/cimctl/command.h"
#include "apps/cimctl/summary.h"
#include "apps/cli/interruption.h"
#include "apps/cli/targetOptions.h"
#include "apps/host/hostedInterface.h"
#include "apps/host/target.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace vexmor::Apps::Cimctl
{

/// A gateway that a command works with.
struct SGateway {
    /// Throws a problem when there is no such gateway.
    SGateway(SContext& context, const STargetOptions& options, const QString& text);

    /// What the interface says of one of its codes.
    SProblem problemOf(int code) { return {hosted.canInterface().errorCodeToString(code), code}; }

    const CTarget target;
    CHostedInterface hosted;
    CSummary summary;
    EConnection shown = EConnection::eConnected; ///< state of the connection as the last line on it has it
    QElapsedTimer sinceLink;                     ///< since the link stands without an answer
    std::optional<double> lostAt;                ///< seconds since the epoch; nothing: the gateway is not lost
};

/// What all commands that talk to gateways share: open interfaces, until something ends the run (a limit, Ctrl-C, the
/// end of a log that the simulated gateway plays, an output that takes nothing), and a summary of each.
class CGatewayRun : public QObject
{
public:
    /// Finds the gateways, opens nothing yet. Ctrl-C ends the run as interrupted. Throws a problem when there is no
    /// such gateway.
    CGatewayRun(SContext& context, const STargetOptions& options);

    COutput& output() { return m_context.output; }
    const std::vector<std::unique_ptr<SGateway>>& gateways() const { return m_gateways; }
    /// The one of a command that works with one.
    SGateway& gateway() { return *m_gateways.front(); }

    /// Opens all and lets the simulated gateway's traffic begin. The run ends after so many seconds; 0: it does not by
    /// itself. Throws the interface's code and text when one does not open.
    void open(double seconds);
    /// Calls `act` once the first gateway has answered. The run ends as refused when it does not answer within 1 s of
    /// the opening: over UDP, and at any other server, nothing else shows that there is no gateway.
    void whenAnswered(std::function<void()> act) { m_onAnswer = std::move(act); }
    /// Time since they are open.
    qint64 openMilliseconds() const { return m_sinceOpen.elapsed(); }
    /// Ends the run; the first call counts.
    void end(EExitCode exitCode);
    /// Waits for the end, prints the summaries, and gives the exit code.
    EExitCode waitForEnd();

private:
    /// A line about one of the gateways, with its name where there are several.
    void report(const SGateway& gateway, const QString& text, QJsonObject object, EColor color = EColor::ePlain);
    void reportBack(SGateway& gateway);
    void reportError(SGateway& gateway, int error);
    void look();
    void lookForAnswer();
    void reportConnection(SGateway& gateway);
    void onLogEnded(SGateway& gateway, const QString& error);

    SContext& m_context;
    const CInterruption m_interruption;
    std::vector<std::unique_ptr<SGateway>> m_gateways;
    QElapsedTimer m_sinceOpen;
    QTimer m_lookTimer; ///< no signal reports an answer, or silence
    std::function<void()> m_onAnswer;
    QEventLoop m_loop;
    std::optional<EExitCode> m_exitCode; ///< nothing: the run has not ended
};

} // namespace vexmor::Apps::Cimctl
