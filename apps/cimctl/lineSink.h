#pragma once

#include <QFile>
#include <QObject>
#include <QTimer>

namespace vexmor::Apps::Cimctl
{

/// Lines for stdout or for a file: buffered, and handed to the system at most 50 ms later (the event loop must run for
/// that) and in the end.
class CLineSink : public QObject
{
    Q_OBJECT

public:
    CLineSink();
    ~CLineSink() override;

    /// False when it cannot be written; see `problem`.
    bool openFile(const QString& path);
    bool openStdout();
    void write(const QByteArray& bytes);
    /// Hands everything to the system. False when it was not taken, now or before.
    bool flush();
    /// Of the system, why it takes nothing.
    QString problem() const;

Q_SIGNALS:
    /// The system does not take what is written (disk full, reader gone): there is no use in more.
    void failed();

private:
    QFile m_file;
    QTimer m_timer;
};

} // namespace vexmor::Apps::Cimctl
