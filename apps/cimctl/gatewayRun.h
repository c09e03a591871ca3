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
    /// Throws a problem when `text` names no gateway.
    SGateway(SContext& context, const STargetOptions& options, const QString& text);

    /// Returns a code of the interface with its text.
    SProblem problemOf(int code) { return {hosted.canInterface().errorCodeToString(code), code}; }

    const CTarget target;
    CHostedInterface hosted;
    CSummary summary;
    EConnection shown = EConnection::eConnected; ///< State of the connection that was reported last.
    QElapsedTimer sinceLink;      ///< Time since the link was established; used until the gateway answers.
    std::optional<double> lostAt; ///< Time of the loss in seconds since the epoch; set while the link is lost.
};

/// A run of a command with open interfaces, and a summary of each interface at its end. It ends at a limit, with
/// Ctrl-C, at the end of the log that the simulated gateway plays, or when the output cannot be written.
class CGatewayRun : public QObject
{
public:
    /// Finds the gateways without opening an interface. Throws a problem when a target names no gateway. From then on,
    /// Ctrl-C ends the run as interrupted.
    CGatewayRun(SContext& context, const STargetOptions& options);

    COutput& output() { return m_context.output; }
    const std::vector<std::unique_ptr<SGateway>>& gateways() const { return m_gateways; }
    /// Returns the gateway of a command that works with one gateway.
    SGateway& gateway() { return *m_gateways.front(); }

    /// Opens all interfaces and starts the traffic of simulated gateways. The run ends after `seconds`, or has no time
    /// limit with 0. Throws the code and text of an interface that cannot be opened.
    void open(double seconds);
    /// Calls `act` as soon as the first gateway has answered. When it has not answered within 1 s of the opening, the
    /// run ends as refused: an interface also opens over UDP without a gateway, and over TCP at any other server.
    void whenAnswered(std::function<void()> act) { m_onAnswer = std::move(act); }
    /// Returns the time since the interfaces were opened.
    qint64 openMilliseconds() const { return m_sinceOpen.elapsed(); }
    /// Ends the run with this exit code. Later calls have no effect.
    void end(EExitCode exitCode);
    /// Waits for the end, prints the summaries and returns the exit code.
    EExitCode waitForEnd();

private:
    /// Reports a line about a gateway, which begins with its name when the run has several gateways.
    void report(const SGateway& gateway, const QString& text, QJsonObject object, EColor color = EColor::ePlain);
    void reportReconnected(SGateway& gateway);
    void reportError(SGateway& gateway, int error);
    void poll();
    void lookForAnswer();
    void reportConnection(SGateway& gateway);
    void onLogEnded(SGateway& gateway, const QString& error);

    SContext& m_context;
    const CInterruption m_interruption;
    std::vector<std::unique_ptr<SGateway>> m_gateways;
    QElapsedTimer m_sinceOpen;
    QTimer m_pollTimer; ///< Polls the state, because no signal reports an answer or silence.
    std::function<void()> m_onAnswer;
    QEventLoop m_loop;
    std::optional<EExitCode> m_exitCode; ///< Set when the run has ended.
};

} // namespace vexmor::Apps::Cimctl
