#pragma once

#include "busThread.h"

#include <QTimer>

namespace vexmor::CanBus
{

/// Lives in a CBusThread: does there what the device asks for, with a new interface for each opening, and tells what
/// comes of it.
class CBusWorker : public QObject
{
    Q_OBJECT

public:
    /// `model` is a closed interface, of which those that are opened are clones.
    CBusWorker(CBusThread& thread, std::unique_ptr<Cim::CCanInterface> model);

    bool event(QEvent* event) override;

private Q_SLOTS:
    void onInterfaceError(int error);

private:
    static int onMessage(const Cim::CCanInterface& canInterface, bool isSending, const Cim::CCanMessage& message);
    void execute(const SCommand& command);
    void open(const SCommand& command);
    void send(const std::vector<Cim::CCanMessage>& messages);
    void receive();
    void lookAtLink();

    CBusThread& m_thread;
    std::unique_ptr<Cim::CCanInterface> m_model;
    std::unique_ptr<Cim::CCanInterface> m_can; ///< null while nothing is open
    int m_session = 0;
    bool m_isWorking = false;
    bool m_isConnected = false; ///< as the device was told
    QTimer m_linkTimer;         ///< runs while a lost link is being regained, of which no signal tells
};

} // namespace vexmor::CanBus
