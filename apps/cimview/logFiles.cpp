#include "apps/cimview/logFiles.h"

#include "apps/host/logRecorder.h"

#include <QDateTime>

#include <algorithm>
#include <utility>

namespace vexmor::Apps::Cimview
{
namespace
{
/// Messages per turn of the event loop, which take some milliseconds.
constexpr std::size_t PIECE = 5000;
} // namespace

CLogLoader::CLogLoader(CSourceNames& names) : m_names(names)
{
    connect(&m_timer, &QTimer::timeout, this, &CLogLoader::loadPiece);
}

void CLogLoader::load(const QString& path)
{
    m_path = path;
    m_records.clear(); // messages of an earlier log that was not read to its end
    m_count = 0;
    m_reader = CanLog::CLogReader();
    if (const Failure failure = m_reader.open(path)) {
        finish(failure->text);
        return;
    }
    m_timer.start(0);
}

void CLogLoader::loadPiece()
{
    for (std::size_t i = 0; i < PIECE; ++i) {
        auto entry = m_reader.next();
        if (!entry || !*entry) {
            finish(entry ? skippedText() : entry.problem().text);
            return;
        }
        const CanLog::SLogEntry& read = **entry;
        const std::uint16_t source = m_names.numberOf(QString::fromUtf8(read.interfaceName));
        m_records.push_back({read.microseconds, read.message, source, read.direction == 'T'});
        ++m_count;
    }
    if (m_records.size() > 2 * CTraceModel::CAPACITY) {
        m_records.erase(m_records.begin(), m_records.end() - CTraceModel::CAPACITY);
    }
}

/// Returns the text on skipped lines, or an empty text when no line was skipped.
QString CLogLoader::skippedText() const
{
    return m_reader.skipped() == 0 ? QString()
                                   : tr("%1: lines skipped (29-bit, remote, error or CAN FD frames): %2")
                                         .arg(m_path)
                                         .arg(m_reader.skipped());
}

void CLogLoader::finish(const QString& problem)
{
    m_timer.stop();
    const std::vector<SBusRecord> records = std::exchange(m_records, {});
    if (!records.empty()) {
        Q_EMIT loaded(records);
    }
    Q_EMIT finished(m_count, problem);
}

CLogSaver::CLogSaver(const CSourceNames& names) : m_names(names)
{
    connect(&m_timer, &QTimer::timeout, this, &CLogSaver::savePiece);
}

void CLogSaver::save(const QString& path, std::vector<SBusRecord> records, bool withDirection)
{
    m_withDirection = withDirection;
    m_file.setFileName(path);
    m_records = std::move(records);
    m_written = 0;
    if (!m_file.open(QIODevice::WriteOnly)) {
        Q_EMIT finished(0, writeProblem(m_file));
        return;
    }
    m_timer.start(0);
}

void CLogSaver::savePiece()
{
    const bool isTable = m_file.fileName().endsWith(QLatin1String(".csv"), Qt::CaseInsensitive);
    const std::size_t end = std::min(m_written + PIECE, m_records.size());
    if (isTable && m_written == 0) {
        m_file.write("time,interface,direction,id,data\n");
    }
    for (; m_written < end; ++m_written) {
        const SBusRecord& record = m_records[m_written];
        m_file.write((isTable ? tableLine(record, m_names) : logLine(record, m_names, m_withDirection)) + '\n');
    }
    if (m_written < m_records.size()) {
        return;
    }
    m_timer.stop();
    const bool ok = m_file.commit();
    Q_EMIT finished(ok ? m_written : 0, ok ? QString() : writeProblem(m_file));
}

QByteArray logLine(const SBusRecord& record, const CSourceNames& names, bool withDirection)
{
    // The name is a field of the line, so it must not contain blanks.
    const QByteArray name = names.name(record.source).replace(QLatin1Char(' '), QLatin1Char('_')).toUtf8();
    const char direction = record.sent ? 'T' : 'R';
    return CanLog::formatLogLine({record.microseconds, name, record.message, withDirection ? direction : '\0'});
}

QByteArray tableLine(const SBusRecord& record, const CSourceNames& names)
{
    const QDateTime time = QDateTime::fromMSecsSinceEpoch(record.microseconds / 1000);
    const QString name = names.name(record.source).replace(QLatin1Char('"'), QStringLiteral("\"\""));
    // Spreadsheets would read 1E5 as a number, so the identifier begins with 0x.
    return QStringLiteral("%1 %2,\"%3\",%4,0x%5,%6")
        .arg(time.toString(QStringLiteral("yyyy-MM-dd")), timeText(record.microseconds), name,
             directionText(record.sent), idText(record.message), dataText(record.message))
        .toUtf8();
}

} // namespace vexmor::Apps::Cimview
