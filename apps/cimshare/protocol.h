#pragma once

#include "apps/cimshare/eventLog.h"
#include "apps/cimshare/sharedBus.h"

#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace vexmor::Apps::Cimshare
{

/// The common interface of the protocols that share buses with clients or through a broker.
class CProtocol
{
public:
    /// `name` is the protocol's name in the event log. The log must outlive the protocol.
    CProtocol(QString name, CEventLog& log) : m_name(std::move(name)), m_log(log) {}
    virtual ~CProtocol() = default;

    /// Reads the files that the protocol needs. Fails when one cannot be used.
    virtual Failure prepare() { return {}; }
    /// Prints what `start` would do, without doing it.
    virtual void printPlan() = 0;
    /// Begins to serve clients, or to connect to a broker.
    virtual Failure start() = 0;
    const QString& name() const { return m_name; }
    /// Returns the number of clients that are connected to a bus.
    virtual int clientCount(const CSharedBus& /*bus*/) const { return 0; }
    /// Returns whether the broker is connected; no value without a broker, and during the first attempt to connect.
    virtual std::optional<bool> isBrokerConnected() const { return {}; }

protected:
    const QString m_name;
    CEventLog& m_log;
};

using CProtocols = std::vector<std::unique_ptr<CProtocol>>;

} // namespace vexmor::Apps::Cimshare
