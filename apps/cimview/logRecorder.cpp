#include "apps/cimview/logRecorder.h"

#include "apps/cimview/logFiles.h"

#include <QDateTime>
#include <QDir>
#include <QStorageInfo>

namespace vexmor::Apps::Cimview
{

CLogRecorder::CLogRecorder(const CSourceNames& names, qint64 fileLimit) : m_names(names), m_fileLimit(fileLimit) {}

void CLogRecorder::start(const QString& folder, bool withDirection)
{
    stop();
    m_withDirection = withDirection;
    m_folder = folder;
    m_count = 0;
    openNext();
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

void CLogRecorder::openNext()
{
    m_file.close();
    if (QStorageInfo(m_folder).bytesAvailable() < DISK_RESERVE) {
        end(tr("Recording ended: the disk of %1 is nearly full.").arg(m_folder));
        return;
    }
    const QDateTime now = QDateTime::currentDateTime();
    const QString stem =
        QDir(m_folder).filePath(QStringLiteral("cimview-") + now.toString(QStringLiteral("yyyyMMdd-HHmmss")));
    QString path = stem + QStringLiteral(".log");
    for (int number = 2; QFile::exists(path); ++number) { // more than one in a second
        path = QStringLiteral("%1-%2.log").arg(stem).arg(number);
    }
    m_file.setFileName(path);
    m_day = now.date();
    if (!m_file.open(QIODevice::WriteOnly)) {
        end(writeProblem(m_file));
    }
}

void CLogRecorder::record(const std::vector<SBusRecord>& records)
{
    if (!isRunning() || records.empty()) {
        return;
    }
    if (m_file.size() >= m_fileLimit || m_day != QDate::currentDate()) {
        openNext();
    }
    if (!isRunning()) {
        return;
    }
    for (const SBusRecord& one : records) {
        m_file.write(logLine(one, m_names, m_withDirection) + '\n');
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

} // namespace vexmor::Apps::Cimview
