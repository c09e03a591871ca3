#include "apps/t93sim/simProgram.h"

#include "apps/cli/interruption.h"
#include "apps/cli/program.h"

#include <QCoreApplication>
#include <QMap>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <tuple>

namespace vexmor::Apps
{
using namespace Sim;

namespace
{
QByteArray hexBytes(const QString& text)
{
    return QByteArray::fromHex(text.toLatin1().replace(":", ""));
}

SSimIdentity identityOf(const SSimOptions& options, int number)
{
    SSimIdentity identity;
    const QByteArray mac = hexBytes(options.mac);
    std::copy(mac.begin(), mac.end(), identity.macAddress.begin());
    identity.macAddress.back() = static_cast<std::uint8_t>(identity.macAddress.back() + number);
    std::tie(identity.firmwareMajor, identity.firmwareMinor) = *SSimOptions::readFirmware(options.firmware);
    identity.deviceText = options.deviceText.toLocal8Bit();
    identity.deviceNumber = static_cast<std::uint16_t>(number + 1);
    identity.measuresBusload = !options.noBusload;
    return identity;
}

SSimAnnouncement announcementOf(const SSimOptions& options, int number)
{
    SSimAnnouncement announcement;
    announcement.hostName = options.hostName.toLocal8Bit();
    if (number > 0) {
        announcement.hostName += '-' + QByteArray::number(number + 1);
    }
    announcement.endpoints.clear();
    for (const QString& text : options.endpoints) {
        announcement.endpoints.push_back(*SSimOptions::readEndpoint(text));
    }
    return announcement;
}

/// Returns the number that a name stands for, or the number in the text.
std::optional<unsigned int> readNumber(const QString& text, const QMap<QString, unsigned int>& names,
                                       unsigned int limit)
{
    bool ok = true;
    const unsigned int value = names.contains(text) ? names.value(text) : text.toUInt(&ok);
    return ok && value <= limit ? std::optional(value) : std::nullopt;
}

/// Returns what a host requests or sends with a command.
QString nameOf(int command)
{
    static const QMap<int, const char*> NAMES{{Cim::RM_CMD_TX11BIT_MSG, "CAN message"},
                                              {Cim::RM_CMD_TX11BIT_MSG_ALT, "CAN message"},
                                              {Cim::RM_CMD_TX29BIT_MSG_ALT, "CAN message with a 29-bit identifier"},
                                              {Cim::RM_CMD_DEVICE_ID, "identification"},
                                              {Cim::RM_CMD_FIRMWARE_VERSION, "firmware version"},
                                              {Cim::RM_CMD_MAC_ADDRESS, "MAC address"},
                                              {Cim::RM_CMD_BUSLOAD, "bus load"},
                                              {Cim::RM_CMD_BUSLOAD_INTERVAL, "bus load interval"},
                                              {Cim::RM_CMD_CAN_BAUD_RATE, "CAN bit rate"},
                                              {Cim::RM_CMD_RESET, "reset"}};
    return QLatin1String(NAMES.value(command, "unknown"));
}

/// Prints one line at once, also into a pipe, because scripts wait for lines. Ends the program when the line cannot be
/// written.
void print(const QString& line)
{
    std::printf("%s\n", qPrintable(line));
    if (!flushOutput()) {
        QTimer::singleShot(0, QCoreApplication::instance(),
                           &QCoreApplication::quit); // from the event loop, which may not run yet
    }
}
} // namespace

std::optional<std::pair<std::uint8_t, std::uint8_t>> SSimOptions::readFirmware(const QString& text)
{
    const QStringList parts = text.split(QLatin1Char('.'));
    if (parts.size() != 2) {
        return std::nullopt;
    }
    const auto major = readNumber(parts.at(0), {}, 0xFF);
    const auto minor = readNumber(parts.at(1), {}, 0xFF);
    if (!major || !minor) {
        return std::nullopt;
    }
    return std::pair(static_cast<std::uint8_t>(*major), static_cast<std::uint8_t>(*minor));
}

std::optional<SSimEndpoint> SSimOptions::readEndpoint(const QString& text)
{
    static const QMap<QString, unsigned int> PROTOCOLS{{QStringLiteral("tcp"), Cim::DDT_PROTOCOL_TCP},
                                                       {QStringLiteral("udp"), Cim::DDT_PROTOCOL_UDP}};
    static const QMap<QString, unsigned int> SERVICES{{QStringLiteral("client"), Cim::DDT_SERVICE_CLIENT},
                                                      {QStringLiteral("server"), Cim::DDT_SERVICE_SERVER}};
    const QStringList parts = text.split(QLatin1Char(':'));
    const QStringList kinds = parts.at(0).split(QLatin1Char('-'));
    if (parts.size() > 2 || kinds.size() != 2) {
        return std::nullopt;
    }
    const auto protocol = readNumber(kinds.at(0), PROTOCOLS, 0xFF);
    const auto service = readNumber(kinds.at(1), SERVICES, 0xFF);
    const auto port = readNumber(parts.value(1, QStringLiteral("0")), {}, 0xFFFF);
    if (!protocol || !service || !port) {
        return std::nullopt;
    }
    SSimEndpoint endpoint;
    endpoint.service = static_cast<std::uint8_t>(*service);
    endpoint.protocol = static_cast<std::uint8_t>(*protocol);
    endpoint.port = static_cast<std::uint16_t>(*port);
    return endpoint;
}

CSimProgram::CSimProgram(SSimOptions options) : m_options(std::move(options)) {}

Failure CSimProgram::start()
{
    m_bus.setBaudrate(static_cast<std::uint32_t>(m_options.baud));
    if (!m_options.replay.isEmpty()) {
        Failure failure = m_replay.open(m_options.replay, m_options.speed, m_options.loop);
        failure = failure ? failure : m_replay.check();
        if (failure) {
            return failure;
        }
    }
    connect(&m_replay, &CSimReplay::ended, this, [this](const QString& error) {
        if (!error.isEmpty()) {
            finish(static_cast<EExitCode>(fail("t93sim", wrongUsage(error))));
        }
    });
    Failure failure = startGateways();
    if (!failure && m_options.detect) {
        failure = startDetection();
    }
    if (failure) {
        return failure;
    }
    const auto finishNormally = [this] { finish(eDone); };
    connect(new CInterruption(this), &CInterruption::interrupted, this, finishNormally);
    if (m_options.seconds > 0) {
        QTimer::singleShot(static_cast<int>(m_options.seconds * 1000), this, finishNormally);
    }
    if (m_options.startNow) {
        startTraffic();
    }
    return {};
}

Failure CSimProgram::startGateways()
{
    if (m_options.port + m_options.gateways - 1 > 0xFFFF) {
        return wrongUsage(QStringLiteral("port of gateway %1: must be at most 65535").arg(m_options.gateways));
    }
    for (int number = 0; number < m_options.gateways; ++number) {
        auto gateway = makeGateway(number);
        const int port = m_options.port == 0 ? 0 : m_options.port + number;
        if (Failure failure = gateway->listen(QHostAddress(m_options.address), static_cast<std::uint16_t>(port))) {
            return failure;
        }
        const auto& mac = gateway->identity().macAddress;
        const QByteArray bytes(reinterpret_cast<const char*>(mac.data()), static_cast<int>(mac.size()));
        print(QStringLiteral("gateway %1: %2:%3 (TCP and UDP), MAC %4")
                  .arg(number + 1)
                  .arg(gateway->address().toString())
                  .arg(gateway->port())
                  .arg(QString::fromLatin1(bytes.toHex(':'))));
        m_gateways.push_back(std::move(gateway));
    }
    return {};
}

Failure CSimProgram::startDetection()
{
    if (Failure failure = m_detection.listen(static_cast<std::uint16_t>(m_options.detectPort))) {
        return failure;
    }
    m_detection.setFaults(m_options.detectionFaults);
    for (int number = 0; number < m_options.gateways; ++number) {
        m_detection.addGateway(*m_gateways[static_cast<std::size_t>(number)], announcementOf(m_options, number));
    }
    print(QStringLiteral("answering ident requests on port %1").arg(m_options.detectPort));
    if (m_options.verbose) {
        connect(&m_detection, &CSimDetection::requestReceived, this, [](const QHostAddress& host, std::uint16_t port) {
            print(QStringLiteral("ident request from %1:%2").arg(host.toString()).arg(port));
        });
    }
    return {};
}

std::unique_ptr<CSimGateway> CSimProgram::makeGateway(int number)
{
    auto made = std::make_unique<CSimGateway>(m_bus);
    CSimGateway* const gateway = made.get();
    SSimFaults faults = m_options.faults;
    faults.garbage = hexBytes(m_options.garbage);
    gateway->setIdentity(identityOf(m_options, number));
    gateway->setFaults(faults);
    gateway->setMaxClients(m_options.clients);
    gateway->setEcho(m_options.echo);

    const QString name = QStringLiteral("gateway %1: ").arg(number + 1);
    if (m_options.dropAfterMs > 0) {
        connect(gateway, &CSimGateway::hostConnected, this,
                [this, gateway] { QTimer::singleShot(m_options.dropAfterMs, gateway, &CSimGateway::dropLinks); });
    }
    connect(gateway, &CSimGateway::messageReceived, this, [this] { ++m_fromHosts; });
    connect(gateway, &CSimGateway::requestReceived, this, [this, name](int command, const QByteArray& payload) {
        startTraffic(); // a host that sends a request is connected and can receive
        if (m_options.verbose) {
            const QByteArray bytes = QByteArray(1, static_cast<char>(command)).append(payload).toHex(' ');
            print(name + QStringLiteral("command %1 (%2)").arg(QString::fromLatin1(bytes), nameOf(command)));
        }
    });
    if (m_options.verbose) {
        connect(gateway, &CSimGateway::hostConnected, this, [name] { print(name + QStringLiteral("host connected")); });
        connect(gateway, &CSimGateway::hostDisconnected, this,
                [name] { print(name + QStringLiteral("host disconnected")); });
    }
    if (m_options.status >= 0) {
        auto* const timer = new QTimer(gateway);
        connect(timer, &QTimer::timeout, gateway,
                [this, gateway] { gateway->sendStatus(static_cast<std::uint8_t>(m_options.status)); });
        timer->start(m_options.statusEveryMs);
    }
    return made;
}

void CSimProgram::startTraffic()
{
    if (m_trafficStarted) {
        return;
    }
    m_trafficStarted = true;
    if (!m_options.replay.isEmpty()) {
        m_replay.start();
    }
    m_generator.start(m_options.generate);
    if (m_options.flood > 0) {
        for (const auto& gateway : m_gateways) {
            gateway->flood(m_options.flood);
        }
    }
}

void CSimProgram::finish(EExitCode exitCode)
{
    print(QStringLiteral("messages: %1 from hosts, %2 replayed, %3 generated")
              .arg(m_fromHosts)
              .arg(m_replay.sent())
              .arg(m_generator.sent()));
    QCoreApplication::exit(exitCode);
}

} // namespace vexmor::Apps
