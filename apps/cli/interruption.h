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
    /// Without a free descriptor the signals keep their default action.
    explicit CInterruption(QObject* parent = nullptr);
    ~CInterruption() override;

Q_SIGNALS:
    void interrupted();

private:
    static void onSignal(int number);
    void onWakeUp();

    static int s_writeEnd; ///< a signal handler may do little more than write a byte

    int m_readEnd = -1;
};

} // namespace vexmor::Apps
