#pragma once

#include "apps/cimctl/output.h"
#include "cim/canInterface.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <cstdint>
#include <memory>

namespace vexmor::Apps::Cimctl
{

/// An interface in use: opens it, hands on its messages and errors as they come, and keeps
/// count of them.
///
/// Every received message is handed on in the moment it is received: the spy handler wakes the reader, so that the
/// queue of the interface never fills and sent and received messages keep their order. Lives in the main thread, which
/// must run an event loop.
class CSession : public QObject
{
    Q_OBJECT

public:
    /// Takes over a closed interface; `output` must outlive the session.
    CSession(COutput& output, std::unique_ptr<Cim::CCanInterface> canInterface);
    /// Closes the interface.
    ~CSession() override;

    Cim::CCanInterface& canInterface() { return *m_canInterface; }

    /// Fails with the interface's code and text when it does not open.
    void open();
    /// Time since the interface is open.
    qint64 openMilliseconds() const { return m_sinceOpen.elapsed(); }
    /// Sends a message; gives the code of the interface. A message that is given up is to be counted.
    int send(const Cim::CCanMessage& message);
    void countRefused() { ++m_refused; }
    std::uint64_t receivedCount() const { return m_received; }
    /// Bus load in percent as the interface tells it.
    int busload();

    /// Ends the session with a line on stderr: received, sent, refused, lost, errors, mean and peak bus load.
    void reportSummary();

Q_SIGNALS:
    void received(const vexmor::Cim::CCanMessage& message);
    /// The spy handler saw the message and the interface took it.
    void sent(const vexmor::Cim::CCanMessage& message);
    /// The interface reports trouble; it goes on.
    void errorRaised(int error);

private Q_SLOTS:
    void onInterfaceError(int error);

private:
    static int spy(const Cim::CCanInterface& canInterface, bool sending, const Cim::CCanMessage& message);
    void takeMessages();
    void sampleBusload();

    COutput& m_output;
    const std::unique_ptr<Cim::CCanInterface> m_canInterface;
    QElapsedTimer m_sinceOpen;
    Cim::CCanMessage m_spied; ///< the last message that the spy handler saw being sent

    std::uint64_t m_arrived = 0;  ///< seen by the spy handler
    std::uint64_t m_received = 0; ///< taken from the queue; the rest was refused by a full queue and is lost
    std::uint64_t m_sent = 0;
    std::uint64_t m_refused = 0;
    std::uint64_t m_errors = 0;

    QTimer m_busloadTimer;
    int m_busloadSamples = 0;
    std::int64_t m_busloadSum = 0;
    int m_busloadPeak = 0;
};

} // namespace vexmor::Apps::Cimctl
