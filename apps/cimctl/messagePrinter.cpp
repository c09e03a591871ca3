#include "apps/cimctl/messagePrinter.h"

#include "apps/cimctl/session.h"
#include "apps/common/failure.h"
#include "candump/candumpLog.h"

#include <chrono>

namespace vexmor::Apps::Cimctl
{
namespace
{
const QByteArray INTERFACE_NAME = QByteArrayLiteral("t93");

std::int64_t microsecondsNow()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

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

CMessagePrinter::CMessagePrinter(COutput& output, CSession& session, const SShowOptions& options)
    : m_output(output), m_options(options)
{
    if (!options.logFile.isEmpty()) {
        output.openLog(options.logFile);
    }
    if (options.received) {
        connect(&session, &CSession::received, this, [this](const auto& message) { show(message, false); });
    }
    if (options.sent) {
        connect(&session, &CSession::sent, this, [this](const auto& message) { show(message, true); });
    }
}

void CMessagePrinter::show(const Cim::CCanMessage& message, bool sending)
{
    if (m_stopped || !passes(message)) {
        return;
    }
    const std::int64_t now = microsecondsNow();
    if (m_output.isJson()) {
        m_output.print(jsonOf(message, sending, now));
    } else {
        // With both directions in one list each line tells its own, as candump -x does.
        const QByteArray direction = m_options.sent ? (sending ? "  TX - -" : "  RX - -") : "";
        const QByteArray line =
            (m_options.time ? timeText(now) : QByteArray()) + Candump::formatDump(INTERFACE_NAME + direction, message);
        m_output.print(sending ? m_output.paint(EColor::eCyan, line) : line);
    }
    if (!m_options.logFile.isEmpty()) {
        m_output.log(Candump::formatLogLine({now, INTERFACE_NAME, message}));
    }
    ++m_shown;
    Q_EMIT messageShown();
}

bool CMessagePrinter::passes(const Cim::CCanMessage& message) const
{
    return passesFilters(m_options.filters, message);
}

} // namespace vexmor::Apps::Cimctl
