#pragma once

#include <QObject>

namespace vexmor::Apps
{

/// Emits a signal from the event loop at the first SIGINT (Ctrl-C), SIGTERM or SIGHUP (closed terminal; ignored under
/// nohup). A second signal ends the program at once. Only one object may exist at a time, in the main thread, created
/// after QCoreApplication.
class CInterruption : public QObject
{
    Q_OBJECT

public:
    /// If `seconds` is not 0, the program ends with success that long after the first signal, even if it is blocked. If
    /// no file descriptor is free, the signals keep their default action.
    explicit CInterruption(QObject* parent = nullptr, unsigned int seconds = 0);
    ~CInterruption() override;

Q_SIGNALS:
    void interrupted();

private:
    static void onSignal(int number);
    void onWakeUp();

    static int s_writeEnd; ///< Pipe to which the signal handler writes a byte.
    static unsigned int s_seconds;

    int m_readEnd = -1;
};

} // namespace vexmor::Apps
