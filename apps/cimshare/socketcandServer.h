#pragma once

#include "apps/cimshare/access.h"
#include "apps/cimshare/sharedBus.h"

#include <QObject>
#include <QTcpServer>

#include <memory>
#include <set>
#include <vector>

class QUdpSocket;

namespace vexmor::Apps::Cimshare
{
class CSocketcandClient;

/// Offers buses by their names on one TCP port, to clients that speak socketcand.
class CSocketcandServer : public QObject
{
    Q_OBJECT

public:
    /// What is handed over outlives the server.
    CSocketcandServer(const std::vector<CSharedBus*>& buses, const SAccess& access, CEventLog& log);
    ~CSocketcandServer() override;

    Failure listen(const SListenAddress& address);
    /// Tells of itself by broadcast every 2 s, in each network that its address belongs to.
    void startBeacon();

    int clientCount(const CSharedBus& bus) const;
    quint64 lostFrames() const { return m_lostFrames; }

private:
    void onNewConnection();
    void addClient(QTcpSocket* socket, const QString& peer);
    void tellError(const CSharedBus& bus, const QString& text);
    void onMessage(const CSharedBus& bus, const Cim::CCanMessage& message, const QObject* sender);
    void sendBeacon(QUdpSocket& socket);

    const std::vector<CSharedBus*>& m_buses;
    const SAccess& m_access;
    CEventLog& m_log;
    QTcpServer m_server;
    std::vector<std::unique_ptr<CSocketcandClient>> m_clients;
    std::set<const CSocketcandClient*> m_slowClients; ///< of which was told
    quint64 m_lostFrames = 0;
};

} // namespace vexmor::Apps::Cimshare
