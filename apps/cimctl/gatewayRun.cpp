#include "apps/cimctl/gatewayRun.h"

#include "apps/common/embeddedSim.h"

#include <cmath>

namespace vexmor::Apps::Cimctl
{
namespace
{
/// The last messages of a log need a few turns of the event loop to the host; over UDP one may be lost.
constexpr int END_OF_LOG_LIMIT_MS = 1000;
} // namespace

CGatewayRun::CGatewayRun(COutput& output, const STargetOptions& target, EExitCode onInterruption)
    : m_output(output), m_target(target), m_session(output, m_target.makeInterface())
{
    connect(&m_interruption, &Sim::CInterruption::interrupted, this, [this, onInterruption] { end(onInterruption); });
    connect(&m_session, &CSession::errorRaised, this, &CGatewayRun::reportError);
    connect(&output, &COutput::failed, this, [this] { end(eRefused); });
}

void CGatewayRun::open(double seconds)
{
    m_session.open();
    if (m_target.sim() != nullptr) {
        connect(m_target.sim(), &CEmbeddedSim::logEnded, this, &CGatewayRun::onLogEnded);
        m_target.sim()->startTraffic();
    }
    if (seconds > 0) {
        QTimer::singleShot(static_cast<int>(std::lround(seconds * 1000)), Qt::PreciseTimer, this,
                           [this] { end(eDone); });
    }
}

void CGatewayRun::end(EExitCode exitCode)
{
    if (!m_ended) {
        m_ended = true;
        m_exitCode = exitCode;
        m_loop.quit();
    }
}

EExitCode CGatewayRun::waitForEnd()
{
    if (!m_ended) { // it may have ended while the interface opened
        m_loop.exec();
    }
    m_session.reportSummary();
    return m_exitCode;
}

void CGatewayRun::reportError(int error)
{
    const QString text = m_session.canInterface().interfaceErrorToString(error).trimmed();
    const QString shown = m_output.isVerbose() ? text : text.section(QLatin1Char('\n'), 0, 0);
    m_output.report(QStringLiteral("interface error %1: %2").arg(QString::number(error), shown),
                    {{QStringLiteral("event"), QStringLiteral("interfaceError")},
                     {QStringLiteral("error"), error},
                     {QStringLiteral("text"), text}},
                    EColor::eRed);
}

void CGatewayRun::onLogEnded(const QString& error)
{
    if (!error.isEmpty()) {
        m_output.reportFailure(error, 0);
        end(eWrongUsage);
        return;
    }
    const auto endWhenAllCame = [this] {
        if (m_session.receivedCount() >= m_target.sim()->messagesToHost()) {
            end(eDone);
        }
    };
    connect(&m_session, &CSession::received, this, endWhenAllCame);
    QTimer::singleShot(END_OF_LOG_LIMIT_MS, this, [this] { end(eDone); });
    endWhenAllCame();
}

} // namespace vexmor::Apps::Cimctl
