#pragma once

#include "apps/cimshare/addresses.h"
#include "apps/cimshare/protocol.h"

#include <map>
#include <memory>

namespace vexmor::Apps::Cimshare
{
class CSharedGateway;

/// Offers each bus as a T93 gateway on a TCP port of its own.
class CT93Share : public CProtocol
{
public:
    /// One port for each bus, counting up from that of `address`; port 0 lets the system pick them.
    CT93Share(const CSharedBuses& buses, const SListenAddress& address, const SAllowedNetworks& allowed,
              CEventLog& log);
    ~CT93Share() override;

    Failure start() override;
    int clientCount(const CSharedBus& bus) const override;

private:
    SListenAddress m_address;
    std::map<const CSharedBus*, std::unique_ptr<CSharedGateway>> m_gateways;
};

} // namespace vexmor::Apps::Cimshare
