#include "apps/host/logRecorder.h"

#include "apps/host/words.h"

#include <QDir>
#include <QStorageInfo>

namespace vexmor::Apps
{

QString writeProblem(const QFileDevice& file)
{
    return Words::tr("%1 cannot be written: %2").arg(file.fileName(), file.errorString());
}

CLogRecorder::CLogRecorder(const QString& prefix, qint64 fileLimit) : m_prefix(prefix), m_fileLimit(fileLimit) {}

void CLogRecorder::start(const QString& folder, EPeriod period, const Format& format)
{
    stop();
    m_folder = folder;
    m_period = period;
    m_format = format;
    m_count = 0;
    openNext(QDateTime::currentDateTime());
    if (isRunning()) {
        Q_EMIT started();
    }
}

void CLogRecorder::stop()
{
    if (isRunning()) {
        end(QString());
    }
}

QString CLogRecorder::periodOf(const QDateTime& time) const
{
    return time.toString(m_period == EPeriod::eHour ? QStringLiteral("yyyyMMdd-HH") : QStringLiteral("yyyyMMdd"));
}

void CLogRecorder::openNext(const QDateTime& now)
{
    m_file.close();
    const QStorageInfo disk(m_folder); // not valid if the folder does not exist: opening the file fails then
    if (disk.isValid() && disk.bytesAvailable() < DISK_RESERVE) {
        end(Words::tr("Recording ended: the disk of %1 is nearly full.").arg(m_folder));
        return;
    }
    const QString stem = QDir(m_folder).filePath(m_prefix + now.toString(QStringLiteral("yyyyMMdd-HHmmss")));
    QString path = stem + QStringLiteral(".log");
    for (int number = 2; QFile::exists(path); ++number) { // several files within one second
        path = QStringLiteral("%1-%2.log").arg(stem).arg(number);
    }
    m_file.setFileName(path);
    m_filePeriod = periodOf(now);
    if (!m_file.open(QIODevice::WriteOnly)) {
        end(writeProblem(m_file));
    }
}

void CLogRecorder::record(const std::vector<SBusRecord>& records, const QDateTime& now)
{
    if (!isRunning() || records.empty()) {
        return;
    }
    if (m_file.size() >= m_fileLimit || m_filePeriod != periodOf(now)) {
        openNext(now);
    }
    if (!isRunning()) {
        return;
    }
    for (const SBusRecord& one : records) {
        m_file.write(m_format(one) + '\n');
    }
    m_count += records.size();
    if (!m_file.flush()) {
        end(writeProblem(m_file));
    }
}

void CLogRecorder::end(const QString& problem)
{
    m_file.close();
    Q_EMIT ended(problem);
}

} // namespace vexmor::Apps
