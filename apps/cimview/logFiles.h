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
/// Of more messages than a trace holds it delivers the last.
class CLogLoader : public QObject
{
    Q_OBJECT

public:
    /// `names` must outlive the loader.
    explicit CLogLoader(CSourceNames& names);

    /// Starts to read; ends with `finished`.
    void load(const QString& path);

Q_SIGNALS:
    /// The messages, unless the log has none.
    void loaded(const std::vector<vexmor::Apps::SBusRecord>& records);
    /// Number of messages read. `problem` is a text for the user when a part of the file could not be read.
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

/// A message as a line of a log, without a line end, under the name of its interface; with R or T at its end, or
/// without, as every program reads it.
QByteArray logLine(const SBusRecord& record, const CSourceNames& names, bool withDirection);

/// The same as a row of a table, for other programs: local time, interface, direction, identifier and data.
QByteArray tableLine(const SBusRecord& record, const CSourceNames& names);

/// Writes messages as a log in candump's format, or as a table where the name of the file ends in .csv, one piece per
/// turn of the event loop. The file appears when it is whole.
class CLogSaver : public QObject
{
    Q_OBJECT

public:
    explicit CLogSaver(const CSourceNames& names);

    /// Starts to write; ends with `finished`.
    void save(const QString& path, std::vector<SBusRecord> records, bool withDirection);

Q_SIGNALS:
    /// Number of messages written. `problem` is a text for the user when the file could not be written.
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
