#pragma once

#include "apps/cimshare/eventLog.h"
#include "apps/cimshare/sharedBus.h"

#include <utility>

namespace vexmor::Apps::Cimshare
{

/// A way in which buses are shared: all that the service knows of it.
class CProtocol
{
public:
    /// `name` stands in the event log, which outlives the protocol.
    CProtocol(QString name, CEventLog& log) : m_name(std::move(name)), m_log(log) {}
    virtual ~CProtocol() = default;

    /// Begins to serve clients, or to connect to a broker.
    virtual Failure start() = 0;
    const QString& name() const { return m_name; }
    /// Clients that are connected to a bus.
    virtual int clientCount(const CSharedBus& /*bus*/) const { return 0; }
    /// Messages that did not reach a client or the broker, since the start.
    quint64 lost() const { return m_lost; }

protected:
    void countLost(CSharedBus& bus, int messages)
    {
        m_lost += static_cast<quint64>(messages);
        bus.countLost(messages);
    }

    const QString m_name;
    CEventLog& m_log;

private:
    quint64 m_lost = 0;
};

} // namespace vexmor::Apps::Cimshare
