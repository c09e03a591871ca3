#pragma once

#include "apps/host/mailbox.h"

#include <QDateTime>
#include <QFile>
#include <QObject>
#include <QString>

#include <functional>
#include <vector>

namespace vexmor::Apps
{

/// A text for the user: why a file cannot be written.
QString writeProblem(const QFileDevice& file);

/// Writes messages to files, a line for each. Begins a new file, named by date and time, each day or hour and when the
/// present one is large. Ends by itself before the disk is full.
class CLogRecorder : public QObject
{
    Q_OBJECT

public:
    static constexpr qint64 FILE_LIMIT = 64LL * 1024 * 1024;
    static constexpr qint64 DISK_RESERVE = 256LL * 1024 * 1024; ///< bytes of the disk that stay free
    /// Makes the line of a message, without a line end.
    using Format = std::function<QByteArray(const SBusRecord&)>;
    enum class EPeriod { eDay, eHour };

    /// `prefix` begins the names of all files.
    explicit CLogRecorder(const QString& prefix, qint64 fileLimit = FILE_LIMIT);

    /// Starts in a folder, with a new file each day or hour; `ended` reports what prevents it.
    void start(const QString& folder, EPeriod period, const Format& format);
    void stop();
    bool isRunning() const { return m_file.isOpen(); }
    /// The file that is being written.
    QString fileName() const { return m_file.fileName(); }
    /// Messages recorded since the start, in all files.
    quint64 count() const { return m_count; }

    void record(const std::vector<SBusRecord>& records, const QDateTime& now = QDateTime::currentDateTime());

Q_SIGNALS:
    void started();
    /// `problem` is a text for the user; empty when it was stopped.
    void ended(const QString& problem);

private:
    QString periodOf(const QDateTime& time) const;
    void openNext(const QDateTime& now);
    void end(const QString& problem);

    const QString m_prefix;
    const qint64 m_fileLimit;
    QString m_folder;
    EPeriod m_period = EPeriod::eDay;
    Format m_format;
    QFile m_file;
    QString m_filePeriod; ///< day or hour in which the file was begun
    quint64 m_count = 0;
};

} // namespace vexmor::Apps
