#include "apps/cimctl/gatewayRun.h"

#include "apps/host/clock.h"
#include "apps/host/embeddedSim.h"
#include "cim/resultCodes.h"

#include <QDateTime>

#include <cmath>

namespace vexmor::Apps::Cimctl
{
namespace
{
/// Time after the end of a log in which its last messages must arrive. They need a few turns of the event loop, and
/// over UDP one may be lost.
constexpr int END_OF_LOG_LIMIT_MS = 1000;
/// Time without an answer after which a gateway counts as silent; gateways answer within milliseconds.
constexpr int SILENCE_MS = 1000;
constexpr int POLL_MS = 20;

/// Returns the time of day, from seconds since the epoch.
QString timeOfDay(double seconds)
{
    return QDateTime::fromMSecsSinceEpoch(std::llround(seconds * 1000)).toString(QStringLiteral("HH:mm:ss"));
}
} // namespace

SGateway::SGateway(SContext& context, const STargetOptions& options, const QString& text)
    : target(valueOf(CTarget::find(plugins(context), text, options.settings))),
      hosted(valueOf(target.makeInterface())),
      summary(hosted)
{
}

CGatewayRun::CGatewayRun(SContext& context, const STargetOptions& options) : m_context(context)
{
    for (const QString& text : options.texts) {
        m_gateways.push_back(std::make_unique<SGateway>(context, options, text));
        SGateway& gateway = *m_gateways.back();
        connect(&gateway.hosted, &CHostedInterface::errorRaised, this,
                [this, &gateway](int error) { reportError(gateway, error); });
    }
    connect(&m_interruption, &CInterruption::interrupted, this, [this] { end(eInterrupted); });
    connect(&output(), &COutput::failed, this, [this] { end(eRefused); });
    connect(&m_pollTimer, &QTimer::timeout, this, &CGatewayRun::poll);
}

void CGatewayRun::open(double seconds)
{
    m_context.diagnostics.expect(QStringLiteral("Setting baudrate to 0 failed.")); // intended, and reported below
    for (const auto& gateway : m_gateways) {
        const int code = gateway->hosted.canInterface().openCommunication();
        if (code != Cim::RC_OK) {
            throw gateway->problemOf(code);
        }
    }
    m_context.diagnostics.release();
    m_sinceOpen.start();
    for (const auto& gateway : m_gateways) {
        gateway->summary.start();
        gateway->sinceLink.start();
        if (gateway->hosted.canInterface().baudrate() == 0) {
            report(*gateway, QStringLiteral("the bit rate of the bus is unchanged (--baudrate sets it)"),
                   {{QStringLiteral("event"), QStringLiteral("bitRateKept")}});
        }
        if (CEmbeddedSim* const sim = gateway->target.sim()) {
            connect(sim, &CEmbeddedSim::logEnded, this,
                    [this, &used = *gateway](const QString& error) { onLogEnded(used, error); });
            sim->startTraffic();
        }
    }
    m_pollTimer.start(POLL_MS);
    if (seconds > 0) {
        QTimer::singleShot(static_cast<int>(std::lround(seconds * 1000)), Qt::PreciseTimer, this,
                           [this] { end(eDone); });
    }
}

void CGatewayRun::end(EExitCode exitCode)
{
    if (!m_exitCode) {
        m_exitCode = exitCode;
        m_loop.quit();
    }
}

EExitCode CGatewayRun::waitForEnd()
{
    if (!m_exitCode) { // the run may have ended while the interfaces were opened
        m_loop.exec();
    }
    for (const auto& gateway : m_gateways) {
        const auto [text, object] = gateway->summary.finish();
        report(*gateway, text, object, EColor::eBold);
    }
    return *m_exitCode;
}

void CGatewayRun::report(const SGateway& gateway, const QString& text, QJsonObject object, EColor color)
{
    const bool several = m_gateways.size() > 1;
    if (several) {
        object.insert(QStringLiteral("name"), gateway.target.name());
    }
    object.insert(QStringLiteral("time"), secondsNow());
    const QString line = (several ? gateway.target.name() + QStringLiteral(": ") : QString()) + text;
    color == EColor::eRed ? output().reportError(line, object) : output().report(line, object, color);
}

void CGatewayRun::reportError(SGateway& gateway, int error)
{
    const QString text = gateway.hosted.canInterface().interfaceErrorToString(error).trimmed();
    const QString shown = m_context.diagnostics.isVerbose() ? text : titleOf(text);
    QString when;
    if (error == Cim::IE_TCP_CONNECTION_LOST) {
        gateway.sinceLink.start(); // the next link may be established before the next poll
        if (!gateway.lostAt) {
            gateway.lostAt = secondsNow();
            when = QStringLiteral(" (%1)").arg(timeOfDay(*gateway.lostAt));
        }
    }
    report(gateway, QStringLiteral("interface error %1: %2%3").arg(QString::number(error), shown, when),
           {{QStringLiteral("event"), QStringLiteral("interfaceError")},
            {QStringLiteral("error"), error},
            {QStringLiteral("text"), text}},
           EColor::eRed);
}

void CGatewayRun::reportReconnected(SGateway& gateway)
{
    const double now = secondsNow();
    const double seconds = now - *std::exchange(gateway.lostAt, std::nullopt);
    gateway.shown = EConnection::eConnected;
    report(gateway, QStringLiteral("gateway: back after %1 s (%2)").arg(seconds, 0, 'f', 1).arg(timeOfDay(now)),
           {{QStringLiteral("event"), QStringLiteral("connected")}, {QStringLiteral("lostSeconds"), seconds}},
           EColor::eGreen);
}

void CGatewayRun::poll()
{
    for (const auto& gateway : m_gateways) {
        gateway->hosted.updateStatus();
    }
    lookForAnswer();
    for (const auto& gateway : m_gateways) {
        const SInterfaceStatus& status = gateway->hosted.status();
        if (status.connection != EConnection::eOpen) {
            gateway->sinceLink.start();
        }
        if (m_exitCode) {
            return;
        }
        if (gateway->lostAt && status.isConnected()) { // also if the link was lost and regained between two polls
            reportReconnected(*gateway);
        } else if (gateway->shown != status.connection) {
            reportConnection(*gateway);
        }
    }
}

void CGatewayRun::lookForAnswer()
{
    if (m_onAnswer && gateway().hosted.status().lastFrame) {
        std::exchange(m_onAnswer, nullptr)();
    } else if (m_onAnswer && m_sinceOpen.elapsed() >= SILENCE_MS) {
        m_onAnswer = nullptr;
        output().reportProblem(
            {QStringLiteral("nothing was sent, %1 does not answer: check the address, and that it is a T93 gateway")
                 .arg(gateway().hosted.canInterface().commonInfo().port())});
        end(eRefused);
    }
}

/// Reports a new state of the connection. Silence over TCP is not reported: the link exists, and the bus may be idle.
void CGatewayRun::reportConnection(SGateway& gateway)
{
    Cim::CCanInterface& canInterface = gateway.hosted.canInterface();
    const SInterfaceStatus& status = gateway.hosted.status();
    const bool isSilent = status.connection == EConnection::eSilent;
    if ((status.connection == EConnection::eOpen && gateway.sinceLink.elapsed() < SILENCE_MS) ||
        (isSilent && canInterface.property("Protocol").toString() != QLatin1String("UDP"))) {
        return;
    }
    gateway.shown = status.connection;
    if (status.connection == EConnection::eOpen) {
        report(
            gateway,
            QStringLiteral("open, no answer yet: check that %1 is a T93 gateway").arg(canInterface.commonInfo().port()),
            {{QStringLiteral("event"), QStringLiteral("noAnswer")}}, EColor::eYellow);
    } else if (isSilent || status.isConnected()) { // a loss is not reported here: reportError has printed it
        report(gateway, QStringLiteral("gateway: ") + connectionText(status),
               {{QStringLiteral("event"), QLatin1String(connectionName(status.connection))}},
               isSilent ? EColor::eYellow : EColor::ePlain);
    }
}

void CGatewayRun::onLogEnded(SGateway& gateway, const QString& error)
{
    if (!error.isEmpty()) {
        output().reportProblem({error});
        end(eWrongUsage);
        return;
    }
    const auto endWhenAllCame = [this, &gateway] {
        if (gateway.hosted.receivedCount() >= gateway.target.sim()->messagesToHost()) {
            end(eDone);
        }
    };
    connect(&gateway.hosted, &CHostedInterface::received, this, endWhenAllCame);
    QTimer::singleShot(END_OF_LOG_LIMIT_MS, this, [this] { end(eDone); });
    endWhenAllCame();
}

} // namespace vexmor::Apps::Cimctl
