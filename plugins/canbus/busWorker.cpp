#include "busWorker.h"

#include "cim/resultCodes.h"

#include <QScopedValueRollback>
#include <QVariant>

#include <iterator>

namespace vexmor::CanBus
{
namespace
{
using Error = QCanBusDevice::CanBusError;
using Status = QCanBusDevice::CanBusStatus;

constexpr int LOOK_AT_LINK_MS = 50;

/// The worker of this thread: a spy handler gets no context.
thread_local CBusWorker* s_worker = nullptr;

/// What an interface error is to users of QCanBus.
struct SMeaning {
    Error error;
    Status busStatus = Status::Unknown;
};
const SMeaning MEANINGS[] = {
    {Error::ConnectionError},               // IE_TCP_CONNECTION_LOST
    {Error::ReadError},                     // IE_WRONG_CHECKSUM
    {Error::ReadError},                     // IE_RX_QUEUE_FULL
    {Error::ReadError},                     // IE_READ_FAILED
    {Error::OperationError},                // IE_NOT_CONNECTED
    {Error::ReadError},                     // IE_CAN_BUFFER_OVERFLOW
    {Error::WriteError},                    // IE_CAN_TRANSMIT_TIMEOUT
    {Error::UnknownError, Status::Warning}, // IE_CAN_ERROR_COUNTER_OVERFLOW
    {Error::UnknownError, Status::BusOff},  // IE_CAN_BUS_OFF
    {Error::WriteError},                    // IE_TCP_SYNTAX_ERROR
    {Error::WriteError},                    // IE_TCP_FORMAT_ERROR
    {Error::WriteError},                    // IE_TCP_BUFFER_OVERFLOW
};
static_assert(std::size(MEANINGS) == Cim::IE_TCP_BUFFER_OVERFLOW + 1, "one for each error");

Error openingError(int code)
{
    return code == Cim::RC_TCP_CONNECT_FAILED ? Error::ConnectionError : Error::ConfigurationError;
}
} // namespace

CBusWorker::CBusWorker(CBusThread& thread, std::unique_ptr<Cim::CCanInterface> model)
    : m_thread(thread), m_model(std::move(model)), m_linkTimer(this)
{
    m_model->setSpyHandler(onMessage);
    m_linkTimer.setInterval(LOOK_AT_LINK_MS);
    connect(&m_linkTimer, &QTimer::timeout, this, &CBusWorker::lookAtLink);
}

bool CBusWorker::event(QEvent* event)
{
    if (event->type() != QEvent::User) {
        return QObject::event(event);
    }
    if (!m_isWorking) { // else: within an opening, which processes events
        s_worker = this;
        const QScopedValueRollback<bool> working(m_isWorking, true);
        while (const std::optional<SCommand> command = m_thread.nextCommand()) {
            execute(*command);
        }
    }
    return true;
}

void CBusWorker::execute(const SCommand& command)
{
    switch (command.kind) {
    case SCommand::eOpen:
        open(command);
        return;
    case SCommand::eSend:
        send(command.messages);
        return;
    case SCommand::eReset:
        // Refused without a link, of which the interface tells as of an error of its own.
        if (m_can && m_can->resetCommunication(1) == Cim::RC_OK) {
            m_thread.tell(m_session, {SNews::eReset});
        }
        return;
    case SCommand::eClose:
        m_linkTimer.stop();
        m_can.reset();
        return;
    case SCommand::eEnd:
        m_thread.quit();
        return;
    }
}

void CBusWorker::open(const SCommand& command)
{
    m_session = command.session;
    m_isConnected = false;
    m_can.reset(m_model->clone());
    m_can->setProperty("CanBaudrate", command.bitRate);
    connect(m_can.get(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
    const int code = m_can->openCommunication();
    if (code != Cim::RC_OK) {
        m_thread.tell(m_session, {SNews::eOpenFailed, openingError(code), m_can->errorCodeToString(code)});
        m_can.reset();
        return;
    }
    m_isConnected = true;
    m_thread.tell(m_session, {SNews::eConnected});
    receive(); // what came meanwhile
}

void CBusWorker::send(const std::vector<Cim::CCanMessage>& messages)
{
    SNews sent{SNews::eSent};
    int refusal = m_can ? Cim::RC_OK : Cim::RC_NOT_OPENED;
    for (const Cim::CCanMessage& message : messages) {
        const int code = m_can ? m_can->writeMessage(message) : Cim::RC_NOT_OPENED;
        ++sent.taken;
        if (code == Cim::RC_OK) {
            ++sent.accepted;
            m_thread.receive(m_session, message, true);
        } else {
            refusal = code;
        }
    }
    m_thread.tell(m_session, std::move(sent));
    if (m_can && refusal != Cim::RC_OK) {
        m_thread.tell(m_session, {SNews::eError, Error::WriteError, m_can->errorCodeToString(refusal)});
    }
}

int CBusWorker::onMessage(const Cim::CCanInterface&, bool isSending, const Cim::CCanMessage&)
{
    if (!isSending) {
        s_worker->lookAtLink();
        if (s_worker->m_isConnected) {
            s_worker->receive();
        }
    }
    return 0;
}

void CBusWorker::receive()
{
    for (Cim::CCanMessage message; m_can->readMessage(message) == Cim::RC_OK;) {
        m_thread.receive(m_session, message, false);
    }
}

void CBusWorker::onInterfaceError(int error)
{
    const bool isKnown = error >= 0 && error < static_cast<int>(std::size(MEANINGS));
    const SMeaning meaning = isKnown ? MEANINGS[error] : SMeaning{Error::UnknownError};
    const bool isLoss = error == Cim::IE_TCP_CONNECTION_LOST;
    m_thread.tell(m_session, {isLoss ? SNews::eLost : SNews::eError, meaning.error,
                              m_can->interfaceErrorToString(error).trimmed(), meaning.busStatus});
    if (isLoss) {
        m_isConnected = false;
        m_linkTimer.start();
    }
}

void CBusWorker::lookAtLink()
{
    // While it is being opened the timer does not run: that it was opened is told by `open`.
    if (m_linkTimer.isActive() && m_can->commonInfo().connectionState() == Cim::CCommonInfo::eConnected) {
        m_linkTimer.stop();
        m_isConnected = true;
        m_thread.tell(m_session, {SNews::eConnected});
        receive();
    }
}

} // namespace vexmor::CanBus
