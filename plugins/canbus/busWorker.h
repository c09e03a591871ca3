#pragma once

#include "apps/common/hostedInterface.h"

#include <QCanBusDevice>
#include <QThread>
#include <QTimer>

#include <climits>
#include <memory>
#include <mutex>

namespace vexmor::CanBus
{

/// Which frames are wanted, and how many may wait for the device.
struct SReception {
    QList<QCanBusDevice::Filter> filters; ///< none: everything
    bool own = false;                     ///< those that were sent, too
    int limit = 0;
};

/// Frames that wait for the device, and how many behind them found no room.
struct SReceived {
    QVector<QCanBusFrame> frames;
    int dropped = 0;
};

/// An interface in a thread of its own, from one opening to its closing: opening blocks for up to a second.
///
/// The device makes it, connects its signals and asks for operations by `QMetaObject::invokeMethod`; the last one is
/// `end`. What comes of them is told by signals, in order. It keeps itself until its thread has ended, for which the
/// program waits when the application object goes.
class CBusWorker : public QObject
{
    Q_OBJECT

public:
    /// Starts the thread. Takes over a closed interface of the calling thread.
    static std::shared_ptr<CBusWorker> start(std::unique_ptr<Cim::CCanInterface> canInterface,
                                             const SReception& reception);

    // From any thread.
    SReceived takeReceived();
    /// Waits until the thread has ended; false when the time was over before.
    bool wait(unsigned long milliseconds = ULONG_MAX) { return m_thread.wait(milliseconds); }

    // In the thread of the interface.
    void open();
    /// While it is being opened, messages wait, and so does the end.
    void send(const Cim::CCanMessage& message);
    void reset();
    void setReception(const SReception& reception) { m_reception = reception; }
    void end();

Q_SIGNALS:
    void openFailed(int code);
    /// The link stands, at first or again.
    void connected();
    void errorRaised(int error);
    void sent(int code);
    void wasReset();
    void framesWaiting();

private:
    CBusWorker(std::unique_ptr<Cim::CCanInterface> canInterface, const SReception& reception);
    Cim::CCanInterface& can() { return m_hosted->canInterface(); }
    void lookAtLink();
    void store(const Cim::CCanMessage& message, bool isOwn);
    void handOver();

    Apps::CHostedInterface* const m_hosted; ///< child; ends with the thread
    bool m_isOpening = true;
    bool m_isEnding = false;             ///< when it has been opened
    QVector<Cim::CCanMessage> m_waiting; ///< until it is open
    QTimer m_linkTimer;                  ///< runs while the link is down: no signal tells that it was regained
    SReception m_reception;
    QVector<QCanBusFrame> m_batch; ///< of this turn of the event loop

    std::mutex m_lock; ///< guards m_received
    SReceived m_received;

    QThread m_thread; ///< first to go
};

} // namespace vexmor::CanBus
