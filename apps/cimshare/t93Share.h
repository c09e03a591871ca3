#pragma once

#include "apps/cimshare/addresses.h"
#include "apps/cimshare/protocol.h"
#include "sim/rmServer.h"

namespace vexmor::Apps::Cimshare
{

/// Offers a shared bus as a T93 gateway on a TCP port of its own. Each host receives what the other clients send. No
/// host can change anything for other clients: requests for a bit rate, a reset or a measuring interval are answered
/// and ignored. Messages that do not fit into a CAN frame are refused. Hosts are turned away until the real gateway has
/// reported its identity, and when their first byte does not begin a frame, because a web page could hide frames in its
/// request.
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
    /// Takes over the identity of the real gateway for answers to hosts.
    void identify();

    CSharedBus& m_bus;
    const SListenAddress m_place;
    CAdmission m_admission;
};

} // namespace vexmor::Apps::Cimshare
