#pragma once

#include "apps/cimshare/addresses.h"
#include "apps/cimshare/protocol.h"
#include "apps/cimshare/socketcandClient.h"

#include <QTcpServer>
#include <QTimer>
#include <QUdpSocket>

#include <list>
#include <memory>

namespace vexmor::Apps::Cimshare
{

/// Serves clients that speak socketcand: all buses on one TCP port, by the names that `busNames` makes. A client may
/// also open a bus by its plain name, which may be longer.
class CSocketcandServer : public QObject, public CProtocol
{
public:
    /// With `hasBeacon`, the server announces itself by broadcast every 2 s, in each network that its address belongs
    /// to. `buses`, `allowed` and `log` must outlive the server.
    CSocketcandServer(const CSharedBuses& buses, const SListenAddress& address, bool hasBeacon,
                      const SAllowedNetworks& allowed, CEventLog& log);

    void printPlan() override { m_admission.printPlan(m_address); }
    Failure start() override;
    int clientCount(const CSharedBus& bus) const override;

private:
    void onNewConnection();
    void addClient(std::unique_ptr<QTcpSocket> socket);
    void deliver(const CSharedBus& bus, const SBusRecord& record, const QObject* sender);
    void sendBeacon();

    QStringList m_names; ///< Names of the buses for clients, in the order of the buses.
    CBusesByName m_byName;
    const SListenAddress m_address;
    QTcpServer m_server;
    CAdmission m_admission;
    QUdpSocket m_beaconSocket;
    QTimer m_beaconTimer;
    std::list<std::unique_ptr<CSocketcandClient>> m_clients;
};

} // namespace vexmor::Apps::Cimshare
