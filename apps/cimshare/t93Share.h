#pragma once

#include "apps/cimshare/addresses.h"
#include "apps/cimshare/protocol.h"
#include "sim/rmServer.h"

namespace vexmor::Apps::Cimshare
{

/// A shared bus as a T93 gateway, on a TCP port of its own. Each host receives what the other clients send. No host
/// changes the gateway for the other clients: requests for a bit rate, a measuring interval or a reset are answered as
/// by a gateway, but not executed. Messages that no CAN frame can carry are refused. A host is turned away while the
/// real gateway has not reported its identity, and when its first byte does not begin a frame: a web page could make a
/// browser send frames within a request.
class CT93Share : public Sim::CRmServer, public CProtocol
{
public:
    CT93Share(CSharedBus& bus, const SListenAddress& place, const SAllowedNetworks& allowed, CEventLog& log);

    void printPlan() override { m_admission.printPlan(m_place); }
    Failure start() override;
    int clientCount(const CSharedBus& bus) const override { return &bus == &m_bus ? tcpHostCount() : 0; }

protected:
    void putOnBus(const Cim::CCanMessage& message, Sim::CRmLink& from) override;
    void change(const Cim::SRmFrame& request) override;
    void handle(Sim::CRmLink& link, const Cim::SRmFrame& frame) override;
    std::unique_ptr<Sim::CRmLink> makeLink(Sim::SRmPeer peer) override;

private:
    /// Answers as the real gateway from now on.
    void identify();

    CSharedBus& m_bus;
    const SListenAddress m_place;
    CAdmission m_admission;
};

} // namespace vexmor::Apps::Cimshare
