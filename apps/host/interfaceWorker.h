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
/// A list of all workers owns each one until its thread has ended. When the application object ends, all workers are
/// ended and waited for. No other function is called after `end`.
class CInterfaceWorker : public QObject
{
    Q_OBJECT

public:
    /// Takes over a closed interface of the calling thread and starts the thread that opens it.
    static std::shared_ptr<CInterfaceWorker> start(std::unique_ptr<Cim::CCanInterface> canInterface,
                                                   std::shared_ptr<CMailbox> mailbox, std::uint16_t source,
                                                   CInterfaceInUse::EOpening opening);
    static void endAll();

    // The following functions may be called from any thread.
    bool send(const Cim::CCanMessage& message);
    void setCyclic(int key, const Cim::CCanMessage& message, int milliseconds);
    void reset();
    void end();
    bool wait(unsigned long milliseconds = ULONG_MAX) { return m_thread.wait(milliseconds); }
    /// Returns the present status. `statusWaits` is emitted again for the next change.
    SInterfaceStatus takeStatus();

Q_SIGNALS:
    /// The status has changed since the last `takeStatus`. Emitted once until the next `takeStatus`, in the thread of
    /// the interface.
    void statusWaits();
    void wasReset();

private:
    CInterfaceWorker(std::unique_ptr<Cim::CCanInterface> canInterface, std::shared_ptr<CMailbox> mailbox,
                     std::uint16_t source, CInterfaceInUse::EOpening opening);
    Cim::CCanInterface& canInterface() { return m_hosted->canInterface(); }
    void enqueue(const std::function<void()>& command);

    // The following functions run in the thread of the interface.
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
    CHostedInterface* const m_hosted; ///< A child, deleted when the thread ends.
    bool m_isOpening = false;         ///< Whether an attempt to open, which processes events, is in progress.
    bool m_hasEnded = false;
    std::vector<std::function<void()>> m_commands; ///< Commands that wait for the end of the attempt to open.
    QTimer m_pollTimer;  ///< Polls the status, as no signal reports a regained link, an answer or a new load.
    QTimer m_retryTimer; ///< Pause before the next attempt to open.
    std::map<int, std::unique_ptr<QTimer>> m_cyclic; ///< Timers of cyclic messages by key.
    std::vector<SBusRecord> m_batch;                 ///< Records of this turn of the event loop.
    unsigned m_losses = 0;                           ///< Number of link losses since the start.
    std::int64_t m_lastTime = 0;                     ///< Time of the last record.

    std::mutex m_mutex; ///< Guards the three members below, which both threads use.
    std::vector<Cim::CCanMessage> m_outbox;
    SInterfaceStatus m_status;
    bool m_isStatusWaiting = false;

    QThread m_thread; ///< Last member, so that it is destroyed first.
};

} // namespace vexmor::Apps
