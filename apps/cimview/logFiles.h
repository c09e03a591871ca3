#pragma once

#include "apps/cimview/sourceNames.h"
#include "apps/cimview/traceModel.h"
#include "canlog/candumpLog.h"

#include <QObject>
#include <QSaveFile>
#include <QString>
#include <QTimer>

#include <vector>

namespace vexmor::Apps::Cimview
{

/// Reads a log in candump's format, one piece per turn of the event loop, so that a long log does not block the window.
/// When the log has more messages than fit into a trace, the loader delivers the last ones.
class CLogLoader : public QObject
{
    Q_OBJECT

public:
    /// `names` must outlive the loader.
    explicit CLogLoader(CSourceNames& names);

    /// Starts to read. `finished` is emitted at the end.
    void load(const QString& path);

Q_SIGNALS:
    /// Delivers the messages; not emitted for an empty log.
    void loaded(const std::vector<vexmor::Apps::SBusRecord>& records);
    /// Reports the number of messages read. `problem` is a text for the user when a part of the file could not be read.
    void finished(quint64 count, const QString& problem);

private:
    void loadPiece();
    QString skippedText() const;
    void finish(const QString& problem);

    CSourceNames& m_names;
    QTimer m_timer;
    CanLog::CLogReader m_reader;
    QString m_path;
    std::vector<SBusRecord> m_records;
    quint64 m_count = 0;
};

/// Returns a message as a line of a log in candump's format, without a line end. The line ends with R or T when
/// `withDirection` is true; some programs can only read lines without it.
QByteArray logLine(const SBusRecord& record, const CSourceNames& names, bool withDirection);

/// Returns a message as a row of a CSV table: local time, interface, direction, identifier and data.
QByteArray tableLine(const SBusRecord& record, const CSourceNames& names);

/// Writes messages to a file, one piece per turn of the event loop: as a log in candump's format, or as a table when
/// the name of the file ends in .csv. The file appears under its name when it is complete.
class CLogSaver : public QObject
{
    Q_OBJECT

public:
    explicit CLogSaver(const CSourceNames& names);

    /// Starts to write. `finished` is emitted at the end.
    void save(const QString& path, std::vector<SBusRecord> records, bool withDirection);

Q_SIGNALS:
    /// Reports the number of messages written. `problem` is a text for the user when the file could not be written.
    void finished(quint64 count, const QString& problem);

private:
    void savePiece();

    const CSourceNames& m_names;
    QTimer m_timer;
    QSaveFile m_file;
    std::vector<SBusRecord> m_records;
    std::size_t m_written = 0;
    bool m_withDirection = false;
};

} // namespace vexmor::Apps::Cimview
