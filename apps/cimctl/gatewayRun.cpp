#include "apps/cimctl/gatewayRun.h"

#include "apps/common/embeddedSim.h"
#include "cim/resultCodes.h"

#include <cmath>

namespace vexmor::Apps::Cimctl
{
namespace
{
/// The last messages of a log need a few turns of the event loop to the host; over UDP one may be lost.
constexpr int END_OF_LOG_LIMIT_MS = 1000;
} // namespace

CGatewayRun::CGatewayRun(SContext& context, const STargetOptions& target, EExitCode onInterruption)
    : m_context(context),
      m_target(plugins(context), target),
      m_interface(m_target.makeInterface()),
      m_summary(m_interface)
{
    connect(&m_interruption, &CInterruption::interrupted, this, [this, onInterruption] { end(onInterruption); });
    connect(&m_interface, &CHostedInterface::errorRaised, this, &CGatewayRun::reportError);
    connect(&output(), &COutput::failed, this, [this] { end(eRefused); });
}

void CGatewayRun::open(double seconds)
{
    const int code = m_interface.canInterface().openCommunication();
    if (code != Cim::RC_OK) {
        throw problemOf(code);
    }
    m_context.diagnostics.release();
    m_sinceOpen.start();
    m_summary.start();
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
    m_summary.report(output());
    return m_exitCode;
}

SProblem CGatewayRun::problemOf(int code)
{
    return {m_interface.canInterface().errorCodeToString(code), code};
}

void CGatewayRun::reportError(int error)
{
    const QString text = m_interface.canInterface().interfaceErrorToString(error).trimmed();
    const QString shown = m_context.diagnostics.isVerbose() ? text : text.section(QLatin1Char('\n'), 0, 0);
    output().report(QStringLiteral("interface error %1: %2").arg(QString::number(error), shown),
                    {{QStringLiteral("event"), QStringLiteral("interfaceError")},
                     {QStringLiteral("error"), error},
                     {QStringLiteral("text"), text}},
                    EColor::eRed);
}

void CGatewayRun::onLogEnded(const QString& error)
{
    if (!error.isEmpty()) {
        output().reportProblem({error});
        end(eWrongUsage);
        return;
    }
    const auto endWhenAllCame = [this] {
        if (m_interface.receivedCount() >= m_target.sim()->messagesToHost()) {
            end(eDone);
        }
    };
    connect(&m_interface, &CHostedInterface::received, this, endWhenAllCame);
    QTimer::singleShot(END_OF_LOG_LIMIT_MS, this, [this] { end(eDone); });
    endWhenAllCame();
}

} // namespace vexmor::Apps::Cimctl
