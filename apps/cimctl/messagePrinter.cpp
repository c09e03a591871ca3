#include "apps/cimctl/messagePrinter.h"

#include "apps/common/clock.h"
#include "canlog/candumpLog.h"

namespace vexmor::Apps::Cimctl
{
namespace
{
const QByteArray INTERFACE_NAME = QByteArrayLiteral("t93");

QByteArray timeText(std::int64_t microseconds)
{
    return "(" + QByteArray::number(static_cast<qint64>(microseconds / 1000000)) + "." +
           QByteArray::number(static_cast<qint64>(microseconds % 1000000)).rightJustified(6, '0') + ") ";
}

QJsonObject jsonOf(const Cim::CCanMessage& message, bool sending, std::int64_t microseconds)
{
    const QByteArray data(reinterpret_cast<const char*>(message.data()), static_cast<int>(message.length()));
    return {{QStringLiteral("event"), sending ? QStringLiteral("sent") : QStringLiteral("received")},
            {QStringLiteral("time"), static_cast<double>(microseconds) / 1e6},
            {QStringLiteral("id"), message.id().value()},
            {QStringLiteral("data"), QString::fromLatin1(data.toHex())}};
}
} // namespace

CMessagePrinter::CMessagePrinter(CGatewayRun& run, const SShowOptions& options)
    : m_output(run.output()), m_options(options)
{
    if (!options.logFile.isEmpty() && !m_log.openFile(options.logFile)) {
        throw logProblem();
    }
    connect(&m_log, &CLineSink::failed, &run, [&run] { run.end(eRefused); });
    if (options.received) {
        connect(&run.hosted(), &CHostedInterface::received, this,
                [this](const auto& message) { show(message, false); });
    }
    if (options.sent) {
        connect(&run.hosted(), &CHostedInterface::sent, this, [this](const auto& message) { show(message, true); });
    }
}

EExitCode CMessagePrinter::finish(EExitCode exitCode)
{
    if (m_log.flush()) {
        return exitCode;
    }
    m_output.reportProblem(logProblem());
    return eRefused;
}

SProblem CMessagePrinter::logProblem() const
{
    return {QStringLiteral("%1 cannot be written: %2").arg(m_options.logFile, m_log.problem())};
}

void CMessagePrinter::show(const Cim::CCanMessage& message, bool sending)
{
    if (m_stopped || !passesFilters(m_options.filters, message)) {
        return;
    }
    const std::int64_t now = microsecondsNow();
    if (m_output.isJson()) {
        m_output.print(jsonOf(message, sending, now));
    } else {
        // With both directions in one list each line tells its own, as candump -x does.
        const QByteArray direction = m_options.sent ? (sending ? "  TX - -" : "  RX - -") : "";
        const QByteArray line =
            (m_options.time ? timeText(now) : QByteArray()) + CanLog::formatDump(INTERFACE_NAME + direction, message);
        m_output.print(sending ? m_output.paint(EColor::eCyan, line) : line);
    }
    if (!m_options.logFile.isEmpty()) {
        m_log.write(CanLog::formatLogLine({now, INTERFACE_NAME, message}) + '\n');
    }
    ++m_shown;
    Q_EMIT messageShown();
}

} // namespace vexmor::Apps::Cimctl
