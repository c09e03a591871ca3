#include "apps/cimctl/messagePrinter.h"

#include "apps/host/clock.h"
#include "canlog/candumpLog.h"

#include <QFileInfo>

#include <cstdlib>

namespace vexmor::Apps::Cimctl
{
namespace
{
const QByteArray INTERFACE_NAME = QByteArrayLiteral("t93");
constexpr std::int64_t MICROSECONDS = 1000000;
constexpr int RECORD_MS = 50;                             ///< Interval at which the recorder gets the messages.
constexpr int DATA_COLUMNS = 3 * CanLog::MAX_DATA_LENGTH; ///< Width of the data: a blank and two digits per byte.

QJsonObject jsonOf(const QByteArray& name, const Cim::CCanMessage& message, bool sending, std::int64_t microseconds)
{
    const QByteArray data(reinterpret_cast<const char*>(message.data()), static_cast<int>(message.length()));
    QJsonObject object{{QStringLiteral("event"), sending ? QStringLiteral("sent") : QStringLiteral("received")},
                       {QStringLiteral("interface"), QString::fromLocal8Bit(name)},
                       {QStringLiteral("time"), static_cast<double>(microseconds) / 1e6},
                       {QStringLiteral("id"), message.id().value()},
                       {QStringLiteral("data"), QString::fromLatin1(data.toHex())}};
    if (const int error = CanLog::errorOf(message)) {
        object.insert(QStringLiteral("error"), error);
    }
    return object;
}

/// Returns the name of a gateway without blanks, because it is a field of a line.
QByteArray nameOf(const CGatewayRun& run, const SGateway& gateway)
{
    return run.gateways().size() == 1 ? INTERFACE_NAME
                                      : printable(gateway.target.name()).replace(' ', '_').replace('\t', '_');
}

Failure checkLogFile(const SShowOptions& options)
{
    const QFileInfo file(options.logFile);
    if (file.isFile() && !options.append && !options.force) {
        return wrongUsage(
            QStringLiteral("%1 exists already (--append continues it, --force replaces it)").arg(options.logFile));
    }
    const bool mayWrite = file.exists() ? !file.isDir() && file.isWritable()
                                        : QFileInfo(file.path()).isWritable(); // for a new file, its folder
    return mayWrite ? Failure()
                    : SProblem{QStringLiteral(
                                   "%1 cannot be written: the folder does not exist, or the permission is missing")
                                   .arg(options.logFile)};
}
} // namespace

CMessagePrinter::CMessagePrinter(CGatewayRun& run, const SShowOptions& options)
    : m_output(run.output()), m_options(options), m_logsToOutput(options.logFile == QLatin1String("-"))
{
    m_log.setFileName(options.logFile);
    if (!options.logFile.isEmpty() && !m_logsToOutput) {
        require(checkLogFile(options));
    }
    connect(&m_recorder, &CLogRecorder::ended, &run, [this, &run](const QString& problem) {
        m_recordProblem = problem;
        run.end(eRefused); // has no effect when the run has ended already
    });
    connect(&m_recordTimer, &QTimer::timeout, this, &CMessagePrinter::record);
    if (!options.logFolder.isEmpty()) {
        const auto format = [this](const SBusRecord& one) {
            const char direction = m_options.direction ? (one.sent ? 'T' : 'R') : '\0';
            return CanLog::formatLogLine({one.microseconds, m_names.at(one.source), one.message, direction});
        };
        const auto period = options.hourly ? CLogRecorder::EPeriod::eHour : CLogRecorder::EPeriod::eDay;
        m_recorder.start(options.logFolder, period, format);
        if (!m_recorder.isRunning()) {
            throw SProblem{m_recordProblem};
        }
        m_recordTimer.start(RECORD_MS);
    }
    connect(&m_log, &CLineSink::failed, &run, [&run] { run.end(eRefused); });
    for (const auto& gateway : run.gateways()) {
        m_names.append(nameOf(run, *gateway));
        const auto number = static_cast<std::uint16_t>(m_names.size() - 1);
        const auto source = std::make_shared<SSource>(SSource{m_names.last(), number, {}});
        if (options.received) {
            connect(&gateway->hosted, &CHostedInterface::received, this,
                    [this, source](const auto& message) { show(*source, message, false); });
        }
        if (options.sent) {
            connect(&gateway->hosted, &CHostedInterface::sent, this,
                    [this, source](const auto& message) { show(*source, message, true); });
        }
    }
}

EExitCode CMessagePrinter::finish(EExitCode exitCode)
{
    record();
    m_recorder.stop();
    if (!m_recordProblem.isEmpty()) {
        m_output.reportProblem({m_recordProblem});
        return eRefused;
    }
    if (m_log.handOver()) {
        return exitCode;
    }
    m_output.reportProblem(logProblem());
    return eRefused;
}

SProblem CMessagePrinter::logProblem() const
{
    return {QStringLiteral("%1 cannot be written: %2").arg(m_options.logFile, m_log.errorString())};
}

void CMessagePrinter::show(SSource& source, const Cim::CCanMessage& message, bool sending)
{
    if (m_stopped || !passesFilters(m_options.filters, message)) {
        return;
    }
    const std::int64_t now = microsecondsNow();
    if (!m_options.logFile.isEmpty()) {
        const char direction = m_options.direction ? (sending ? 'T' : 'R') : '\0';
        log(CanLog::formatLogLine({now, source.name, message, direction}));
    }
    if (m_recorder.isRunning()) {
        m_toRecord.push_back({now, message, source.number, sending});
    }
    if (!m_logsToOutput) {
        m_output.isJson() ? m_output.print(jsonOf(source.name, message, sending, now))
                          : m_output.print(lineOf(source, message, sending, now));
    }
    ++m_shown;
    Q_EMIT messageShown();
}

void CMessagePrinter::record()
{
    m_recorder.record(std::exchange(m_toRecord, {}));
}

void CMessagePrinter::log(const QByteArray& line)
{
    if (m_logsToOutput) {
        m_output.print(line);
    } else if (m_log.isOpen() || m_log.open(m_options.append ? QIODevice::Append : QIODevice::WriteOnly)) {
        m_log.writeLine(line + '\n');
    } else {
        m_stopped = true;
        Q_EMIT m_log.failed();
    }
}

QByteArray CMessagePrinter::lineOf(SSource& source, const Cim::CCanMessage& message, bool sending, std::int64_t now)
{
    const QByteArray direction = m_options.sent ? (sending ? "  TX - -" : "  RX - -") : "";
    QByteArray line = timeText(now) + CanLog::formatDump(source.name + direction, message);
    const int data = line.lastIndexOf(']') + 2; // after "[8]"; the data has a blank and two digits per byte
    if (m_options.ascii) {
        line = line.leftJustified(data + DATA_COLUMNS) + "  '" + CanLog::formatAscii(message) + '\'';
    }
    if (CanLog::errorOf(message) != 0) {
        line = m_output.paint(EColor::eRed, line + "  " + CanLog::formatAdministration(message).c_str());
        source.last.insert_or_assign({message.id().value(), sending}, message);
        return line;
    }
    if (sending) {
        return m_output.paint(EColor::eCyan, line);
    }
    const auto [known, isFirst] = source.last.try_emplace({message.id().value(), sending}, message);
    const Cim::CCanMessage before = std::exchange(known->second, message);
    // Starts with the last byte, because each colour sequence moves the text after it.
    for (int i = static_cast<int>(message.length()) - 1; i >= 0 && !isFirst; --i) {
        if (i >= static_cast<int>(before.length()) || before.data()[i] != message.data()[i]) {
            const int at = data + 3 * i + 1;
            line.replace(at, 2, m_output.paint(EColor::eBold, line.mid(at, 2)));
        }
    }
    return line;
}

QByteArray CMessagePrinter::timeText(std::int64_t now)
{
    if (m_options.time == 0) {
        return {};
    }
    const bool isAbsolute = m_options.time == 'a';
    const std::int64_t shown = isAbsolute ? now : now - (m_timeBase == 0 ? now : m_timeBase);
    if (m_timeBase == 0 || m_options.time == 'd') {
        m_timeBase = now;
    }
    const auto digits = [](std::int64_t value, int width) {
        return QByteArray::number(static_cast<qlonglong>(value)).rightJustified(width, '0');
    };
    return '(' + digits(shown / MICROSECONDS, 3) + '.' + digits(std::abs(shown % MICROSECONDS), 6) + ") ";
}

} // namespace vexmor::Apps::Cimctl
