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

/// Returns why a file cannot be written, as a text for the user.
QString writeProblem(const QFileDevice& file);

/// Writes messages to files, one line per message. Begins a new file, named by date and time, each day or hour and when
/// the present file is large. Ends before the disk is full.
class CLogRecorder : public QObject
{
    Q_OBJECT

public:
    static constexpr qint64 FILE_LIMIT = 64LL * 1024 * 1024;    ///< Bytes after which a new file is begun.
    static constexpr qint64 DISK_RESERVE = 256LL * 1024 * 1024; ///< Bytes of the disk that stay free.
    /// Returns the line of a message, without a line end.
    using Format = std::function<QByteArray(const SBusRecord&)>;
    enum class EPeriod { eDay, eHour };

    /// `prefix` begins the names of all files; `fileLimit` is in bytes.
    explicit CLogRecorder(const QString& prefix, qint64 fileLimit = FILE_LIMIT);

    /// Starts to record in a folder, with a new file each day or hour. When that fails, `ended` is emitted.
    void start(const QString& folder, EPeriod period, const Format& format);
    void stop();
    bool isRunning() const { return m_file.isOpen(); }
    /// Returns the name of the file that is being written.
    QString fileName() const { return m_file.fileName(); }
    /// Returns the number of messages recorded since the start, in all files.
    quint64 count() const { return m_count; }

    void record(const std::vector<SBusRecord>& records, const QDateTime& now = QDateTime::currentDateTime());

Q_SIGNALS:
    void started();
    /// Emitted when the recording ends. `problem` is a text for the user; it is empty after `stop`.
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
    QString m_filePeriod; ///< Day or hour in which the file was begun.
    quint64 m_count = 0;
};

} // namespace vexmor::Apps
