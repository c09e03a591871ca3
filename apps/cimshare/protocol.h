#pragma once

#include "apps/cimshare/eventLog.h"
#include "apps/cimshare/sharedBus.h"

#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace vexmor::Apps::Cimshare
{

/// A way in which buses are shared: all that the service knows of it.
class CProtocol
{
public:
    /// `name` stands in the event log, which outlives the protocol.
    CProtocol(QString name, CEventLog& log) : m_name(std::move(name)), m_log(log) {}
    virtual ~CProtocol() = default;

    /// Reads files. Fails when one cannot be used.
    virtual Failure prepare() { return {}; }
    /// Prints what `start` would do.
    virtual void printPlan() = 0;
    /// Begins to serve clients, or to connect to a broker.
    virtual Failure start() = 0;
    const QString& name() const { return m_name; }
    /// Clients that are connected to a bus.
    virtual int clientCount(const CSharedBus& /*bus*/) const { return 0; }
    /// Nothing: there is no broker, or the first attempt to connect is under way.
    virtual std::optional<bool> isBrokerConnected() const { return {}; }

protected:
    const QString m_name;
    CEventLog& m_log;
};

using CProtocols = std::vector<std::unique_ptr<CProtocol>>;

} // namespace vexmor::Apps::Cimshare
