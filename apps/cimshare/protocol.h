#pragma once

#include "apps/cimshare/sharedBus.h"
#include "canlog/problem.h"

#include <QObject>
#include <QString>

namespace vexmor::Apps::Cimshare
{

/// A way in which the buses are shared: all that the service knows of it. Everything handed to a constructor outlives
/// the protocol.
class CProtocol : public QObject
{
public:
    /// Begins to serve clients, or to connect to a broker.
    virtual Failure start() = 0;
    /// The name in the event log.
    virtual QString name() const = 0;
    /// Clients that are connected to a bus.
    virtual int clientCount(const CSharedBus& /*bus*/) const { return 0; }
    /// Messages of a bus that did not reach a client or the broker, since the start.
    virtual quint64 lostCount(const CSharedBus& bus) const = 0;
};

} // namespace vexmor::Apps::Cimshare
