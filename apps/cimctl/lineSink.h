#pragma once

#include <QFile>
#include <QTimer>

namespace vexmor::Apps::Cimctl
{

/// A file, or stdout, for lines: buffered, and handed to the system at most 50 ms later (the event loop must run for
/// that) and in the end. Opened as any QFile.
class CLineSink : public QFile
{
    Q_OBJECT

public:
    CLineSink();

    void writeLine(const QByteArray& line);
    /// Hands everything to the system. Returns false when it was not taken, now or before; see `errorString`.
    bool handOver();

Q_SIGNALS:
    /// The system does not take what is written (disk full, reader gone): there is no use in more.
    void failed();

private:
    QTimer m_timer;
};

} // namespace vexmor::Apps::Cimctl
