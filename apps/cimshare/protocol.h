#pragma once

#include "apps/cimshare/eventLog.h"
#include "apps/cimshare/sharedBus.h"

#include <map>
#include <utility>

namespace vexmor::Apps::Cimshare
{

/// A way in which the buses are shared: all that the service knows of it.
class CProtocol : public QObject
{
public:
    /// `name` stands in the event log. What is handed over outlives the protocol.
    CProtocol(QString name, const CSharedBuses& buses, CEventLog& log)
        : m_name(std::move(name)), m_buses(buses), m_log(log)
    {
    }

    /// Begins to serve clients, or to connect to a broker.
    virtual Failure start() = 0;
    const QString& name() const { return m_name; }
    /// Clients that are connected to a bus.
    virtual int clientCount(const CSharedBus& /*bus*/) const { return 0; }
    /// Messages of a bus that did not reach a client or the broker, since the start.
    virtual quint64 lostCount(const CSharedBus& bus) const { return m_lost.count(&bus) == 0 ? 0 : m_lost.at(&bus); }

protected:
    /// Counts lost messages; a client that has not chosen a bus has none.
    void countLost(const CSharedBus* bus, int messages) { m_lost[bus] += static_cast<quint64>(messages); }

    const QString m_name;
    const CSharedBuses& m_buses;
    CEventLog& m_log;

private:
    std::map<const CSharedBus*, quint64> m_lost;
};

} // namespace vexmor::Apps::Cimshare
