#pragma once

#include <QObject>

namespace vexmor::Apps
{

/// Turns the first SIGINT (Ctrl-C), SIGTERM or SIGHUP (the terminal is closed; not under nohup) into a signal of the
/// event loop; a second one ends the program at once. One object at a time, in the main thread, after QCoreApplication.
class CInterruption : public QObject
{
    Q_OBJECT

public:
    /// Without a free descriptor the signals keep their default action. With `seconds` the program ends at the latest
    /// so long after the first of the signals, with success, whatever holds it up.
    explicit CInterruption(QObject* parent = nullptr, unsigned int seconds = 0);
    ~CInterruption() override;

Q_SIGNALS:
    void interrupted();

private:
    static void onSignal(int number);
    void onWakeUp();

    static int s_writeEnd; ///< a signal handler may do little more than write a byte
    static unsigned int s_seconds;

    int m_readEnd = -1;
};

} // namespace vexmor::Apps
