#pragma once

#include "cim/canInterface.h"

#include <QCanBusDevice>
#include <QEvent>
#include <QThread>

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace vexmor::CanBus
{

class CBusWorker;

/// What an interface is asked to do, in the order in which it is done.
struct SCommand {
    enum EKind { eOpen, eSend, eReset, eClose, eEnd };
    EKind kind = eEnd;
    int session = 0; ///< of eOpen: a number for all that comes of it
    int bitRate = 0; ///< of eOpen: kbit/s; 0 leaves the gateway's
    std::vector<Cim::CCanMessage> messages = {};
};

/// What an interface tells the device, in the order in which it happened.
struct SNews {
    enum EKind { eNothing, eConnected, eOpenFailed, eLost, eFrames, eSent, eReset, eError };
    EKind kind = eNothing;
    QCanBusDevice::CanBusError error = QCanBusDevice::NoError; ///< with `text`, where something failed
    QString text = {};
    QCanBusDevice::CanBusStatus busStatus = QCanBusDevice::CanBusStatus::Unknown; ///< of eError: Unknown says nothing
    QVector<QCanBusFrame> frames = {};
    int dropped = 0;  ///< of eFrames: frames after these that found no room
    int taken = 0;    ///< of eSent: frames that wait no more
    int accepted = 0; ///< of eSent: those among them that the interface took
};

/// Which received frames are wanted, and how many may wait for the device.
struct SReception {
    QList<QCanBusDevice::Filter> filters; ///< none: everything
    bool own = false;                     ///< those that this device sent, too
    int limit = 0;
};

/// The thread in which an interface lives, with what crosses between it and the device's thread: commands one way,
/// news the other. No operation waits for the interface.
///
/// Ends by itself after `end`, which the device asks for when it is deleted: what was accepted is sent before, and an
/// opening that is under way may take a second. The program waits for that when the application object goes.
class CBusThread : public QThread
{
public:
    /// Starts a thread for an interface that is closed and lives in the calling thread. `device` gets an event of the
    /// type `newsEvent` for each of the news.
    static std::shared_ptr<CBusThread> start(std::unique_ptr<Cim::CCanInterface> canInterface, QObject& device);
    static QEvent::Type newsEvent();
    ~CBusThread() override;

    // For the device.
    void open(int bitRate);
    void send(const Cim::CCanMessage& message);
    void reset();
    /// No more news come from what was opened.
    void close();
    void end();
    SNews nextNews();
    void setReception(const SReception& reception);

    // For the interface's thread. News of a session that was closed are dropped.
    std::optional<SCommand> nextCommand();
    void tell(int session, SNews news);
    void receive(int session, const Cim::CCanMessage& message, bool isOwn);

protected:
    void run() override;

private:
    explicit CBusThread(QObject& device);
    void ask(SCommand command);
    void forgetOpening();
    void wakeDevice();

    std::mutex m_lock; ///< guards all below
    QObject* m_device; ///< null: nobody listens any more
    bool m_isDeviceAwake = false;
    std::unique_ptr<CBusWorker> m_worker; ///< lives in this thread
    int m_session = 0;
    SReception m_reception;
    std::deque<SCommand> m_commands;
    std::deque<SNews> m_news;
    int m_framesWaiting = 0; ///< in the news
};

} // namespace vexmor::CanBus
