#pragma once

#include "apps/cimview/sourceNames.h"
#include "apps/host/mailbox.h"

#include <QDate>
#include <QFile>
#include <QObject>
#include <QString>

#include <vector>

namespace vexmor::Apps::Cimview
{

/// Writes live messages to files in candump's format. Begins a new file, named by date and time, each day and when the
/// present one is large. Ends by itself before the disk is full. Window thread only.
class CLogRecorder : public QObject
{
    Q_OBJECT

public:
    static constexpr qint64 FILE_LIMIT = 64LL * 1024 * 1024;
    static constexpr qint64 DISK_RESERVE = 256LL * 1024 * 1024; ///< bytes of the disk that stay free

    /// `names` must outlive the recorder.
    explicit CLogRecorder(const CSourceNames& names, qint64 fileLimit = FILE_LIMIT);

    /// Starts in a folder; `ended` reports what prevents it.
    void start(const QString& folder, bool withDirection = false);
    void stop();
    bool isRunning() const { return m_file.isOpen(); }
    /// The file that is being written.
    QString fileName() const { return m_file.fileName(); }
    /// Messages recorded since the start, in all files.
    quint64 count() const { return m_count; }

    void record(const std::vector<SBusRecord>& records);

Q_SIGNALS:
    void started();
    /// `problem` is a text for the user; empty when it was stopped.
    void ended(const QString& problem);

private:
    void openNext();
    void end(const QString& problem);

    const CSourceNames& m_names;
    const qint64 m_fileLimit;
    QString m_folder;
    QFile m_file;
    QDate m_day; ///< of the file
    bool m_withDirection = false;
    quint64 m_count = 0;
};

} // namespace vexmor::Apps::Cimview
