#pragma once

#include <QObject>
#include <QSocketNotifier>

namespace vexmor::Cimctl
{

/// Turns the first SIGINT (Ctrl-C) or SIGTERM into an orderly end of the event loop; a second one ends the program at
/// once. One object in a program, in the main thread, after QCoreApplication.
class CInterruption : public QObject
{
public:
    CInterruption();
    ~CInterruption() override;

    bool wasInterrupted() const { return m_interrupted; }

private:
    static void onSignal(int number);
    void onWakeUp();

    static int s_writeEnd; ///< a signal handler may do little more than write a byte

    int m_readEnd = -1;
    QSocketNotifier* m_notifier = nullptr; ///< child
    bool m_interrupted = false;
};

} // namespace vexmor::Cimctl
