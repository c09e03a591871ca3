#pragma once

#include "apps/host/hostedInterface.h"

#include <QCanBusDevice>
#include <QThread>
#include <QTimer>

#include <climits>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace vexmor::CanBus
{

/// Received and sent frames that wait for the device, and how many behind them found no room.
struct SFrames {
    QVector<QCanBusFrame> frames;
    int dropped = 0;
};

/// An interface in a thread of its own, from one opening to its closing: opening blocks for up to a second.
///
/// What is asked for is done there, in order, once the opening is over; what comes of it is told by signals, in order,
/// too. The last thing to ask for is `end`. A worker keeps itself until its thread has ended, for which the program
/// waits when the application object goes.
class CBusWorker : public QObject
{
    Q_OBJECT

public:
    /// Starts the thread. Takes over a closed interface of the calling thread.
    static std::shared_ptr<CBusWorker> start(std::unique_ptr<Cim::CCanInterface> canInterface);

    // From any thread.
    void open();
    void send(const Cim::CCanMessage& message);
    void reset();
    void end();
    /// Waits until the thread has ended; false when the time was over before.
    bool wait(unsigned long milliseconds = ULONG_MAX) { return m_thread.wait(milliseconds); }
    SFrames takeFrames();

Q_SIGNALS:
    void openFailed(int code);
    /// All is well: the link stands, at first or again, or the gateway was reset.
    void connected();
    void errorRaised(int error);
    void sent(int code);
    void framesWaiting();

private:
    explicit CBusWorker(std::unique_ptr<Cim::CCanInterface> canInterface);
    Cim::CCanInterface& can() { return m_hosted->canInterface(); }
    void ask(const std::function<void()>& command);
    void onError(int error);
    void lookAtLink();
    void store(const Cim::CCanMessage& message, bool isOwn);
    void handOver();

    Apps::CHostedInterface* const m_hosted; ///< child; ends with the thread
    bool m_isOpening = true;
    std::vector<std::function<void()>> m_commands; ///< wait until it is open
    QTimer m_linkTimer;            ///< runs while the link is down: no signal tells that it was regained
    QVector<QCanBusFrame> m_batch; ///< of this turn of the event loop

    std::mutex m_lock; ///< guards m_frames
    SFrames m_frames;

    QThread m_thread; ///< first to go
};

} // namespace vexmor::CanBus
