#pragma once

// Shared by the tests of the driver: the real plugin, loaded as a host loads it, and peers that act as the gateway.

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

/// Returns a complete frame with a command and its payload.
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

/// Returns the driver behind an interface. Only its virtual functions can be called from outside the library.
inline CInterfaceT93& driver(CCanInterface& can)
{
    return static_cast<CInterfaceT93&>(can);
}

using Protocol = CCommonInfo::EProtocolType;

/// Returns UDP if the name of the current row begins with UDP, otherwise TCP.
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

/// Returns a closed interface for a gateway at 127.0.0.1.
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

/// Reads the waiting messages, at most `atMost`.
inline QList<CCanMessage> unread(CCanInterface& can, int atMost = INT_MAX)
{
    QList<CCanMessage> messages;
    for (CCanMessage next; messages.size() < atMost && can.readMessage(next) == RC_OK;) {
        messages.append(next);
    }
    return messages;
}

/// Returns the numbers that the signal interfaceError reported.
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

/// Returns the settings of a gateway with a single fault.
inline SSimFaults faulty(bool SSimFaults::*fault)
{
    SSimFaults faults;
    faults.*fault = true;
    return faults;
}

/// Returns the identity of a gateway that does not measure the bus load, so that it receives no polls.
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
    QList<CCanMessage> atGateway; ///< Messages that the gateway received.
    CSimBus bus;
    CSimGateway gateway{bus};
};

/// An open interface that has received the identity of its gateway, with a record of its errors.
struct SHost {
    explicit SHost(std::uint16_t port, Protocol protocol = CCommonInfo::eProtocolTcp)
        : can(makeInterface(port, protocol)),
          errors(std::make_unique<QSignalSpy>(can.get(), SIGNAL(interfaceError(int))))
    {
        // These answers to the requests at the opening come last. By then, the gateway has accepted this host.
        const bool isSettled =
            can->openCommunication() == RC_OK && QTest::qWaitFor([this] {
                return !can->commonInfo().interfaceId().isEmpty() && !can->commonInfo().firmwareVersion().isEmpty();
            });
        (void)QTest::qVerify(isSettled, "settled", "the interface is open and knows its gateway", __FILE__, __LINE__);
    }

    /// Reads messages until `count` were read, or for 5 s.
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

/// An open interface with its simulated gateway.
struct SOpenInterface : SGateway, SHost {
    explicit SOpenInterface(Protocol protocol = CCommonInfo::eProtocolTcp, const SSimIdentity& identity = {})
        : SGateway(identity), SHost(gateway.port(), protocol)
    {
    }
    /// Makes the gateway send a status that raises error 5, and waits for the error: everything that the gateway sent
    /// before has been processed then.
    bool isAllHeard()
    {
        const int before = errors->size();
        gateway.sendStatus(0x01);
        return QTest::qWaitFor([&] { return errors->size() == before + 1; });
    }
    /// Breaks the connection and keeps it from being re-established. Returns whether error 0 was raised, as the first
    /// error.
    bool lose()
    {
        gateway.setFaults(faulty(&SSimFaults::refuse));
        gateway.dropLinks();
        return QTest::qWaitFor([this] { return errorNumbers() == QList<int>{0}; });
    }
};

/// A port of 127.0.0.1 for a server of the test; the system gives it to no other program.
struct SKeptPort : QTcpSocket {
    SKeptPort() { bind(QHostAddress::LocalHost, 0, ShareAddress | ReuseAddressHint); }
};

/// A server on a free port of 127.0.0.1.
struct SServer : QTcpServer {
    SServer() { listen(QHostAddress(QHostAddress::LocalHost)); }
};

/// A port that neither accepts nor refuses connections, because its queue is full.
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

/// A gateway without behaviour of its own: records the bytes of the host, and the test writes the answers.
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
    /// Waits until at least `count` bytes were received over the present link, and returns all of them.
    QByteArray waitFor(int count)
    {
        (void)QTest::qWaitFor([&] { return received.size() >= count; });
        return received;
    }

    SServer server;
    std::unique_ptr<QTcpSocket> link; ///< Must be destroyed before the server, which is its parent.
    QByteArray received;
};

/// Such a gateway, and an open interface whose first requests it has received.
struct SInterfaceAtRawGateway : SRawGateway {
    SInterfaceAtRawGateway()
    {
        can->openCommunication();
        waitFor(23); // the requests of MAC address, version, measuring interval and bit rate
    }
    std::unique_ptr<CCanInterface> can = makeInterface(port());
};

} // namespace vexmor::Test
