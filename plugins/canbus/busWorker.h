#pragma once

#include "cim/canInterface.h"

#include <QCanBusDevice>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace vexmor::CanBus
{

class CT93CanDevice;

/// Something that happened, to be done at the device.
using News = std::function<void(CT93CanDevice&)>;

/// Which frames are wanted, and how many may wait for the device.
struct SReception {
    QList<QCanBusDevice::Filter> filters; ///< none: everything
    bool own = false;                     ///< those that the device sent, too
    int limit = 0;
};

/// The interfaces of one device, in a thread of their own: a new one for each session, which is what lies between an
/// opening and a closing. Neither side waits for the other: commands are done in order, news and frames come in order.
///
/// The thread ends after `end`: what was accepted is sent before, and an opening that is under way may take a second.
/// The program waits for that when the application object goes.
class CBusWorker : public QObject
{
    Q_OBJECT

public:
    /// Starts the thread. `model` is a closed interface of the calling thread, which has the configuration.
    static std::shared_ptr<CBusWorker> start(std::unique_ptr<Cim::CCanInterface> model);

    // From any thread.
    /// Has an operation done in the interface's thread, after those that were asked for before.
    template <typename... Parameters, typename... Arguments>
    void ask(void (CBusWorker::*operation)(Parameters...), const Arguments&... arguments)
    {
        post([=] { (this->*operation)(arguments...); });
    }
    /// A session for which nothing waits to be sent: if it was not opened yet it will not be.
    void giveUp(int session) { m_givenUp = session; }
    /// The frames of a session that wait; `dropped` becomes the number of those behind them that found no room.
    QVector<QCanBusFrame> takeFrames(int session, int& dropped);
    bool wait(unsigned long milliseconds = ULONG_MAX) { return m_thread.wait(milliseconds); }

    // To be asked for.
    void setReception(const SReception& reception) { m_reception = reception; }
    void open(int session, int kbitPerSecond);
    void send(const Cim::CCanMessage& message);
    void reset();
    void close();
    void end();

Q_SIGNALS:
    void happened(int session, const vexmor::CanBus::News& news);
    void framesWaiting();

private Q_SLOTS:
    void onInterfaceError(int error);

private:
    explicit CBusWorker(std::unique_ptr<Cim::CCanInterface> model);
    void post(std::function<void()> command);
    static int onMessage(const Cim::CCanInterface& canInterface, bool isSending, const Cim::CCanMessage& message);
    void takeReceived();
    void store(const Cim::CCanMessage& message, bool isOwn);
    void handOver();
    void tell(const News& news);
    void lookAtLink();

    std::unique_ptr<Cim::CCanInterface> m_model;
    std::unique_ptr<Cim::CCanInterface> m_can; ///< null while nothing is open
    int m_session = 0;
    bool m_isConnected = false; ///< as was told
    QTimer m_linkTimer;         ///< runs while a lost link is being regained, of which no signal tells
    SReception m_reception;
    QVector<QCanBusFrame> m_batch; ///< of this turn of the event loop
    std::deque<std::function<void()>> m_commands;
    bool m_isWorking = false;
    std::atomic<int> m_givenUp{0}; ///< session that need not be opened any more

    std::mutex m_lock; ///< guards what follows
    int m_framesSession = 0;
    QVector<QCanBusFrame> m_frames;
    int m_dropped = 0;

    QThread m_thread; ///< first to go
};

} // namespace vexmor::CanBus

Q_DECLARE_METATYPE(vexmor::CanBus::News)
