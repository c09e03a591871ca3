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

/// The part of CInterfaceInUse that lives in the thread of the interface.
///
/// A list of all workers keeps each until its thread has ended; when the application object ends, the program ends them
/// and waits. `end` is the last operation.
class CInterfaceWorker : public QObject
{
    Q_OBJECT

public:
    /// Takes over a closed interface of the calling thread and starts the thread that opens it.
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
    /// Returns the newest status; from now on, `statusWaits` reports a change again.
    SInterfaceStatus takeStatus();

Q_SIGNALS:
    /// The status changed after the last `takeStatus`. Emitted once, in the thread of the interface.
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
    void updateStatus();
    void publish(SInterfaceStatus status);
    void onError(int error);
    void sendWaiting();
    void sendNow(const Cim::CCanMessage& message);
    void store(const Cim::CCanMessage& message, bool sent, int code);
    void handOver();

    const std::shared_ptr<CMailbox> m_mailbox;
    const std::uint16_t m_source;
    const CInterfaceInUse::EOpening m_opening;
    CHostedInterface* const m_hosted; ///< child; deleted when the thread ends
    bool m_isOpening = false;         ///< while `openCommunication` runs, which processes events
    bool m_hasEnded = false;
    std::vector<std::function<void()>> m_commands; ///< executed when the attempt to open has ended
    QTimer m_lookTimer;  ///< polls the status: no signal reports a regained link, an answer, or a new load
    QTimer m_retryTimer; ///< until the next attempt to open
    std::map<int, std::unique_ptr<QTimer>> m_cyclic; ///< by the owner's key
    std::vector<SBusRecord> m_batch;                 ///< records of this turn of the event loop
    unsigned m_losses = 0;                           ///< of the link
    std::int64_t m_lastTime = 0;                     ///< time of the last record

    std::mutex m_mutex; ///< guards the members below, which both threads use
    std::vector<Cim::CCanMessage> m_outbox;
    SInterfaceStatus m_status;
    bool m_isStatusWaiting = false;

    QThread m_thread; ///< destroyed first
};

} // namespace vexmor::Apps
