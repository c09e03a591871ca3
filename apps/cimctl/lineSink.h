#pragma once

#include <QFile>
#include <QTimer>

namespace vexmor::Apps::Cimctl
{

/// A file, or stdout, for lines. Lines are buffered and handed to the system within 50 ms, while the event loop runs,
/// and at the end. It is opened like any QFile.
class CLineSink : public QFile
{
    Q_OBJECT

public:
    CLineSink();

    void writeLine(const QByteArray& line);
    /// Hands all buffered lines to the system. Returns false when this failed now or before; see `errorString`.
    bool handOver();

Q_SIGNALS:
    /// Emitted when a line could not be written (disk full, closed pipe). Later lines will fail as well.
    void failed();

private:
    QTimer m_timer;
};

} // namespace vexmor::Apps::Cimctl
