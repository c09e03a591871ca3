#pragma once

#include "apps/cimshare/access.h"
#include "apps/cimshare/sharedBus.h"

#include <QObject>

#include <map>
#include <memory>
#include <vector>

namespace vexmor::Apps::Cimshare
{
class CSharedGateway;

/// Offers each bus as a T93 gateway on a TCP port of its own.
class CT93Share : public QObject
{
    Q_OBJECT

public:
    /// What is handed over outlives the share.
    CT93Share(const std::vector<CSharedBus*>& buses, const SAccess& access, CEventLog& log);
    ~CT93Share() override;

    /// Listens on one port for each bus, counting up from the address's; port 0 lets the system pick them.
    Failure listen(SListenAddress address);

    int clientCount(const CSharedBus& bus) const;
    quint64 lostFrames(const CSharedBus& bus) const;

private:
    const std::vector<CSharedBus*>& m_buses;
    CEventLog& m_log;
    std::map<const CSharedBus*, std::unique_ptr<CSharedGateway>> m_gateways;
};

} // namespace vexmor::Apps::Cimshare
