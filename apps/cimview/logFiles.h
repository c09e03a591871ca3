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

/// Reads a log in candump's format, a piece each turn of the event loop: a long one does not stop the window. Of more
/// messages than a trace holds, the last.
class CLogLoader : public QObject
{
    Q_OBJECT

public:
    /// `names` must outlive the loader.
    explicit CLogLoader(CSourceNames& names, QObject* parent = nullptr);

    /// Starts to read; ends with `finished`.
    void load(const QString& path);

Q_SIGNALS:
    /// All that was read, unless it was nothing.
    void loaded(const std::vector<vexmor::Apps::Cimview::STraceRecord>& records);
    /// So many messages were read; `problem` is a text for the user when something of the file could not be.
    void finished(quint64 count, const QString& problem);

private:
    void loadPiece();
    QString skippedText() const;
    void finish(const QString& problem);

    CSourceNames& m_names;
    QTimer m_timer;
    CanLog::CLogReader m_reader;
    QString m_path;
    std::vector<STraceRecord> m_records;
    quint64 m_count = 0;
};

/// A message as a line of a log, without a line end, under the name of its interface.
QByteArray logLine(const STraceRecord& record, const CSourceNames& names);

/// Writes messages as a log in candump's format, in the same way. The file stands there whole or not at all.
class CLogSaver : public QObject
{
    Q_OBJECT

public:
    explicit CLogSaver(const CSourceNames& names, QObject* parent = nullptr);

    /// Starts to write; ends with `finished`.
    void save(const QString& path, std::vector<STraceRecord> records);

Q_SIGNALS:
    void finished(quint64 count, const QString& problem);

private:
    void savePiece();

    const CSourceNames& m_names;
    QTimer m_timer;
    QSaveFile m_file;
    std::vector<STraceRecord> m_records;
    std::size_t m_written = 0;
};

} // namespace vexmor::Apps::Cimview
