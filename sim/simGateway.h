#pragma once

#include "sim/rmServer.h"
#include "sim/simFaults.h"

namespace vexmor::Sim
{

class CSimBus;

/// Who a simulated gateway says it is, unless something else is set.
struct SSimIdentity : SGatewayIdentity {
    SSimIdentity()
    {
        macAddress = {0x02, 0x00, 0x00, 0x54, 0x39, 0x33};
        firmwareMajor = 1;
        firmwareMinor = 5;
        deviceText = "T93 SIM SW02.03";
    }
};

/// A simulated T93 gateway: serves TCP and UDP on one port and carries messages between its hosts and a simulated bus.
/// It misbehaves on demand.
class CSimGateway : public CRmServer
{
    Q_OBJECT

public:
    /// `bus` must outlive the gateway and live in the same thread.
    explicit CSimGateway(CSimBus& bus, QObject* parent = nullptr);

    const SSimFaults& faults() const { return m_faults; }
    void setFaults(const SSimFaults& faults);
    /// Every message of a host is put on the bus a second time, as if another device sent it: it comes back to that
    /// host.
    void setEcho(bool echo) { m_echo = echo; }

    /// Sends bytes to all hosts as they are, without faults.
    void sendRaw(const QByteArray& bytes);
    /// Sends `count` messages (identifiers 0 to 0x7FF in turn, 8 data bytes that count up from 0, high byte first) as
    /// fast as they go, past the bus.
    void flood(int count);

Q_SIGNALS:
    /// Every valid frame that a host sends, before it is handled; CAN messages too.
    void requestReceived(int command, const QByteArray& payload);
    /// A CAN message of a host, before it is put on the bus.
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
    void floodOn();

    CSimBus& m_bus;
    SSimFaults m_faults;
    bool m_echo = false;
    QTimer m_floodTimer;
    int m_floodLeft = 0;
    int m_floodSent = 0;
};

} // namespace vexmor::Sim
