#pragma once

#include "sim/rmServer.h"
#include "sim/simFaults.h"

namespace vexmor::Sim
{

class CSimBus;

/// The default identity of a simulated gateway.
struct SSimIdentity : SGatewayIdentity {
    SSimIdentity()
    {
        macAddress = {0x02, 0x00, 0x00, 0x54, 0x39, 0x33};
        firmwareMajor = 1;
        firmwareMinor = 5;
        deviceText = "T93 SIM SW02.03";
    }
};

/// A simulated T93 gateway: serves TCP and UDP on one port, passes messages between its hosts and a simulated bus, and
/// has the faults that `setFaults` sets.
class CSimGateway : public CRmServer
{
    Q_OBJECT

public:
    /// `bus` must outlive the gateway and live in the same thread.
    explicit CSimGateway(CSimBus& bus, QObject* parent = nullptr);

    const SSimFaults& faults() const { return m_faults; }
    void setFaults(const SSimFaults& faults);
    /// Sets whether a copy of each message from a host is put on the bus as if another device sent it; the host
    /// receives this copy.
    void setEcho(bool echo) { m_echo = echo; }

    /// Sends bytes to all hosts, without faults.
    void sendRaw(const QByteArray& bytes);
    /// Sends `count` messages to the hosts as fast as possible, bypassing the bus. Identifiers go from 0 to 0x7FF in
    /// turn; the 8 data bytes contain a counter from 0, high byte first.
    void flood(int count);

Q_SIGNALS:
    /// A host sent a valid frame, which may be a CAN message. Emitted before the frame is handled.
    void requestReceived(int command, const QByteArray& payload);
    /// A host sent a CAN message. Emitted before the message is put on the bus.
    void messageReceived(const vexmor::Cim::CCanMessage& message);

protected:
    void putOnBus(const Cim::CCanMessage& message, CRmLink& from) override;
    void change(const Cim::SRmFrame& request) override;
    std::unique_ptr<CRmLink> makeLink(SRmPeer peer) override;
    bool isReachable(bool overTcp) const override;
    void handle(CRmLink& link, const Cim::SRmFrame& frame) override;
    void reply(CRmLink& link, const QByteArray& frame) override;

private:
    CFaultyLink& linkAt(std::size_t index) const;
    void continueFlood();

    CSimBus& m_bus;
    SSimFaults m_faults;
    bool m_echo = false;
    QTimer m_floodTimer;
    int m_floodLeft = 0;
    int m_floodSent = 0;
};

} // namespace vexmor::Sim
