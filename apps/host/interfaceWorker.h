#pragma once

#include "apps/host/hostedInterface.h"
#include "apps/host/interfaceInUse.h"

#include <QThread>
#include <QTimer>

#include <climits>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace vexmor::Apps
{

/// The side of CInterfaceInUse that lives in the thread of the interface: from one opening to its closing.
///
/// It keeps itself until its thread has ended, for which the program waits when the application object ends: the thread
/// runs code of the plugin. The last thing to ask for is `end`.
class CInterfaceWorker : public QObject
{
    Q_OBJECT

public:
    /// Starts the thread, which opens the interface. Takes over a closed interface of the calling thread.
    static std::shared_ptr<CInterfaceWorker> start(std::unique_ptr<Cim::CCanInterface> canInterface,
                                                   std::shared_ptr<CMailbox> mailbox, std::uint16_t source,
                                                   CInterfaceInUse::EOpening opening);
    static void endAll();

    // From any thread.
    bool send(const Cim::CCanMessage& message);
    void setCyclic(int key, const Cim::CCanMessage& message, int milliseconds);
    void reset();
    void end();
    bool wait(unsigned long milliseconds = ULONG_MAX) { return m_thread.wait(milliseconds); }
    /// The newest status.
    SInterfaceStatus takeStatus();

Q_SIGNALS:
    /// The status changed; once, until it was taken.
    void statusWaits();
    void wasReset();

private:
    CInterfaceWorker(std::unique_ptr<Cim::CCanInterface> canInterface, std::shared_ptr<CMailbox> mailbox,
                     std::uint16_t source, CInterfaceInUse::EOpening opening);
    Cim::CCanInterface& can() { return m_hosted->canInterface(); }
    void enqueue(const std::function<void()>& command);

    // In the thread of the interface.
    void open();
    void onOpened(int code);
    void askAgain();
    void look();
    void publish(const SInterfaceStatus& status);
    void onError(int error);
    void sendWaiting();
    void sendNow(const Cim::CCanMessage& message);
    void store(const Cim::CCanMessage& message, bool sent, int code);
    void handOver();

    const std::shared_ptr<CMailbox> m_mailbox;
    const std::uint16_t m_source;
    const CInterfaceInUse::EOpening m_opening;
    CHostedInterface* const m_hosted; ///< child; ends with the thread
    bool m_isOpening = false;         ///< events are processed meanwhile
    bool m_hasEnded = false;
    std::vector<std::function<void()>> m_commands; ///< wait until the attempt to open has ended
    QTimer m_lookTimer; ///< no signal reports that a link was regained, that the gateway was heard, or its load
    QTimer m_askTimer;  ///< until the next attempt to open, or to have a silent gateway answer over UDP
    std::map<int, std::unique_ptr<QTimer>> m_cyclic;
    std::vector<SBusRecord> m_batch; ///< of this turn of the event loop
    std::int64_t m_lastTime = 0;     ///< of a record

    std::mutex m_mutex; ///< guards what both threads use:
    std::vector<Cim::CCanMessage> m_outbox;
    SInterfaceStatus m_status;
    bool m_isStatusWaiting = false;

    QThread m_thread; ///< first to go
};

} // namespace vexmor::Apps
