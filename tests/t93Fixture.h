#pragma once

// What the tests of the driver share: the real plugin, loaded as a host loads it, and peers that play the gateway.

#include "InterfaceT93/interfaceT93.h"
#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"
#include "cim/resultCodes.h"
#include "sim/simBus.h"
#include "sim/simGateway.h"
#include "testData.h"

#include <QtNetwork>

#include <sys/socket.h>

namespace vexmor::Test
{

using namespace vexmor::Cim;
using namespace vexmor::Sim;

/// A whole frame around a command and its payload.
inline QByteArray frame(std::uint8_t command, const QByteArray& payload = {})
{
    return rmFrame(command, payload);
}

inline CCanInterfacePlugin& plugin()
{
    static QPluginLoader loader(QStringLiteral(CIM_PLUGIN_FILE));
    auto* const object = qobject_cast<CCanInterfacePlugin*>(loader.instance());
    if (object == nullptr) {
        qFatal("%s", qPrintable(loader.errorString()));
    }
    return *object;
}

/// The driver behind an interface. Only its virtual operations can be called from outside the library.
inline CInterfaceT93& driver(CCanInterface& can)
{
    return static_cast<CInterfaceT93&>(can);
}

using Protocol = CCommonInfo::EProtocolType;

/// Of a row whose name begins with TCP or UDP.
inline Protocol rowProtocol()
{
    return rowName().startsWith("UDP") ? CCommonInfo::eProtocolUdp : CCommonInfo::eProtocolTcp;
}

/// Changes the configuration of an interface, open or closed.
template <typename Change>
void configure(CCanInterface& can, Change&& change)
{
    CConfigParamT93 param = driver(can).configParam();
    change(param);
    driver(can).setConfigParam(param);
}

/// A closed interface for a gateway at 127.0.0.1.
inline std::unique_ptr<CCanInterface> makeInterface(std::uint16_t port, Protocol protocol = CCommonInfo::eProtocolTcp)
{
    std::unique_ptr<CCanInterface> can(plugin().createInterface());
    configure(*can, [&](CConfigParamT93& param) {
        param.setIpAddress(QHostAddress(QHostAddress::LocalHost));
        param.setPort(port);
        param.setProtocolType(protocol);
        param.setCanBaudrate(500);
    });
    return can;
}

/// Takes the messages that are there, at most so many.
inline QList<CCanMessage> unread(CCanInterface& can, int atMost = INT_MAX)
{
    QList<CCanMessage> messages;
    for (CCanMessage next; messages.size() < atMost && can.readMessage(next) == RC_OK;) {
        messages.append(next);
    }
    return messages;
}

/// What the signal interfaceError said.
inline QList<int> errorNumbers(const QSignalSpy& errors)
{
    QList<int> numbers;
    for (const QList<QVariant>& arguments : errors) {
        numbers.append(arguments.at(0).toInt());
    }
    return numbers;
}

inline bool isConnected(CCanInterface& can)
{
    return can.commonInfo().connectionState() == CCommonInfo::eConnected;
}

inline void listenOn(CSimGateway& gateway, const QHostAddress& address = QHostAddress(QHostAddress::LocalHost))
{
    if (const auto failure = gateway.listen(address, 0)) {
        qFatal("%s", qPrintable(failure->text));
    }
}

/// A gateway that misbehaves in one way.
inline SSimFaults faulty(bool SSimFaults::*fault)
{
    SSimFaults faults;
    faults.*fault = true;
    return faults;
}

/// A gateway that by itself says nothing of bus load.
inline SSimIdentity withoutBusload()
{
    SSimIdentity identity;
    identity.measuresBusload = false;
    return identity;
}

/// A simulated gateway, with a record of what it receives.
struct SGateway {
    explicit SGateway(const SSimIdentity& identity = {})
    {
        gateway.setIdentity(identity);
        listenOn(gateway);
        QObject::connect(&gateway, &CSimGateway::messageReceived, [this](const auto& one) { atGateway.append(one); });
    }
    QList<CCanMessage> atGateway; ///< messages that the gateway received
    CSimBus bus;
    CSimGateway gateway{bus};
};

/// An interface that is open and knows its gateway, with a record of its errors.
struct SHost {
    explicit SHost(std::uint16_t port, Protocol protocol = CCommonInfo::eProtocolTcp)
        : can(makeInterface(port, protocol)),
          errors(std::make_unique<QSignalSpy>(can.get(), SIGNAL(interfaceError(int))))
    {
        // The last of the start-up replies: from here on the gateway knows this host.
        const bool isSettled =
            can->openCommunication() == RC_OK && QTest::qWaitFor([this] {
                return !can->commonInfo().interfaceId().isEmpty() && !can->commonInfo().firmwareVersion().isEmpty();
            });
        (void)QTest::qVerify(isSettled, "settled", "the interface is open and knows its gateway", __FILE__, __LINE__);
    }

    /// Takes messages until there are `count`, or for 5 s.
    QList<CCanMessage> receive(int count)
    {
        QList<CCanMessage> messages;
        (void)QTest::qWaitFor([&] { return (messages += unread(*can, count - messages.size())).size() >= count; });
        return messages;
    }
    QList<int> errorNumbers() const { return Test::errorNumbers(*errors); }

    std::unique_ptr<CCanInterface> can;
    std::unique_ptr<QSignalSpy> errors;
};

/// The same at a simulated gateway.
struct SOpenInterface : SGateway, SHost {
    explicit SOpenInterface(Protocol protocol = CCommonInfo::eProtocolTcp, const SSimIdentity& identity = {})
        : SGateway(identity), SHost(gateway.port(), protocol)
    {
    }
    /// Lets the gateway raise error 5, and so waits until all that it said before has been dealt with.
    bool isAllHeard()
    {
        const int before = errors->size();
        gateway.sendStatus(0x01);
        return QTest::qWaitFor([&] { return errors->size() == before + 1; });
    }
    /// The connection is lost and cannot be had again: error 0, the first one.
    bool lose()
    {
        gateway.setFaults(faulty(&SSimFaults::refuse));
        gateway.dropLinks();
        return QTest::qWaitFor([this] { return errorNumbers() == QList<int>{0}; });
    }
};

/// A server on a free port of 127.0.0.1.
struct SServer : QTcpServer {
    SServer() { listen(QHostAddress(QHostAddress::LocalHost)); }
};

/// A port where connections are neither accepted nor refused: its queue is full.
struct SDeafPort : SServer {
    SDeafPort()
    {
        ::listen(static_cast<int>(socketDescriptor()), 0);
        pauseAccepting();
        for (QTcpSocket& filler : fillers) {
            filler.connectToHost(serverAddress(), serverPort());
            (void)filler.waitForConnected(50);
        }
    }

    QTcpSocket fillers[2];
};

/// A gateway that only listens: records what the host sends and says what the test says.
struct SRawGateway {
    SRawGateway()
    {
        QObject::connect(&server, &QTcpServer::newConnection, [this] {
            link.reset(server.nextPendingConnection());
            received.clear();
            QObject::connect(link.get(), &QTcpSocket::readyRead, [this] { received += link->readAll(); });
        });
    }
    std::uint16_t port() const { return server.serverPort(); }
    /// Waits until so many bytes came over the link that stands now; gives what came.
    QByteArray waitFor(int count)
    {
        (void)QTest::qWaitFor([&] { return received.size() >= count; });
        return received;
    }

    SServer server;
    std::unique_ptr<QTcpSocket> link; ///< belongs to the server, too, and so goes before it
    QByteArray received;
};

/// The same, and an open interface to it whose requests have come.
struct SInterfaceAtRawGateway : SRawGateway {
    SInterfaceAtRawGateway()
    {
        can->openCommunication();
        waitFor(23); // MAC address, version, interval, bit rate
    }
    std::unique_ptr<CCanInterface> can = makeInterface(port());
};

} // namespace vexmor::Test
