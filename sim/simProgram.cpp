#include "sim/simProgram.h"

#include "sim/commandLine.h"
#include "sim/interruption.h"

#include <QCoreApplication>
#include <QMap>
#include <QStringList>
#include <QTimer>

#include <algorithm>
#include <cstdio>

namespace vexmor::Sim
{
namespace
{
QByteArray hexBytes(const std::string& text)
{
    return QByteArray::fromHex(QByteArray::fromStdString(text).replace(":", ""));
}

SSimIdentity identityOf(const SSimOptions& options, int number)
{
    SSimIdentity identity;
    const QByteArray mac = hexBytes(options.mac);
    std::copy(mac.begin(), mac.end(), identity.macAddress.begin());
    identity.macAddress.back() = static_cast<std::uint8_t>(identity.macAddress.back() + number);
    SSimOptions::parseFirmware(options.firmware, &identity.firmwareMajor, &identity.firmwareMinor);
    identity.deviceText = QByteArray::fromStdString(options.deviceText);
    identity.deviceNumber = static_cast<std::uint16_t>(number + 1);
    identity.measuresBusload = !options.noBusload;
    identity.hostName = QByteArray::fromStdString(options.hostName);
    if (number > 0) {
        identity.hostName += '-' + QByteArray::number(number + 1);
    }
    identity.endpoints.clear();
    for (const std::string& text : options.endpoints) {
        SSimOptions::parseEndpoint(text, &identity.endpoints.emplace_back());
    }
    return identity;
}

/// The number that a name stands for, or that is written out; false when it is neither, or above `limit`.
bool readNumber(const QString& text, const QMap<QString, unsigned int>& names, unsigned int limit, unsigned int& value)
{
    bool ok = true;
    value = names.contains(text) ? names.value(text) : text.toUInt(&ok);
    return ok && value <= limit;
}

/// One line at once, also into a pipe: scripts wait for it. The program ends when nobody takes it.
void print(const QByteArray& line)
{
    std::printf("%s\n", line.constData());
    if (!flushOutput()) {
        QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit); // it may not run yet
    }
}
} // namespace

bool SSimOptions::parseFirmware(const std::string& text, std::uint8_t* major, std::uint8_t* minor)
{
    const QStringList parts = QString::fromStdString(text).split(QLatin1Char('.'));
    if (parts.size() != 2) {
        return false;
    }
    bool ok[2] = {};
    const unsigned int numbers[2] = {parts.at(0).toUInt(&ok[0]), parts.at(1).toUInt(&ok[1])};
    if (!ok[0] || !ok[1] || numbers[0] > 0xFF || numbers[1] > 0xFF) {
        return false;
    }
    if (major != nullptr && minor != nullptr) {
        *major = static_cast<std::uint8_t>(numbers[0]);
        *minor = static_cast<std::uint8_t>(numbers[1]);
    }
    return true;
}

bool SSimOptions::parseEndpoint(const std::string& text, SSimEndpoint* endpoint)
{
    static const QMap<QString, unsigned int> PROTOCOLS{{QStringLiteral("tcp"), Cim::DDT_PROTOCOL_TCP},
                                                       {QStringLiteral("udp"), Cim::DDT_PROTOCOL_UDP}};
    static const QMap<QString, unsigned int> SERVICES{{QStringLiteral("client"), Cim::DDT_SERVICE_CLIENT},
                                                      {QStringLiteral("server"), Cim::DDT_SERVICE_SERVER}};
    const QStringList parts = QString::fromStdString(text).split(QLatin1Char(':'));
    const QStringList kinds = parts.at(0).split(QLatin1Char('-'));
    unsigned int protocol = 0;
    unsigned int service = 0;
    unsigned int port = 0;
    if (parts.size() > 2 || kinds.size() != 2 || !readNumber(kinds.at(0), PROTOCOLS, 0xFF, protocol) ||
        !readNumber(kinds.at(1), SERVICES, 0xFF, service) ||
        (parts.size() == 2 && !readNumber(parts.at(1), {}, 0xFFFF, port))) {
        return false;
    }
    if (endpoint != nullptr) {
        *endpoint = {static_cast<std::uint8_t>(service), static_cast<std::uint8_t>(protocol),
                     static_cast<std::uint16_t>(port)};
    }
    return true;
}

CSimProgram::CSimProgram(SSimOptions options) : m_options(std::move(options)) {}

ESimExitCode CSimProgram::start(QString& error)
{
    m_bus.setBaudrate(static_cast<std::uint32_t>(m_options.baud));
    if (!m_options.replay.empty() &&
        !m_replay.open(QString::fromStdString(m_options.replay), m_options.speed, m_options.loop, error)) {
        return eSimWrongUsage;
    }
    connect(&m_replay, &CSimReplay::failed, this, [this](const QString& text) {
        std::fprintf(stderr, "t93sim: %s\n", qPrintable(text));
        finish(eSimWrongUsage);
    });
    if (m_options.port + m_options.gateways - 1 > 0xFFFF) {
        error = QStringLiteral("port of gateway %1: must be at most 65535").arg(m_options.gateways);
        return eSimWrongUsage;
    }
    if (!startGateways(error) || (m_options.detect && !startDetection(error))) {
        return eSimRefused;
    }
    const auto finishInOrder = [this] { finish(eSimDone); };
    connect(new CInterruption(this), &CInterruption::interrupted, this, finishInOrder);
    if (m_options.seconds > 0) {
        QTimer::singleShot(static_cast<int>(m_options.seconds * 1000), this, finishInOrder);
    }
    if (m_options.startNow) {
        startTraffic();
    }
    return eSimDone;
}

bool CSimProgram::startGateways(QString& error)
{
    for (int number = 0; number < m_options.gateways; ++number) {
        auto gateway = makeGateway(number);
        const int port = m_options.port == 0 ? 0 : m_options.port + number;
        if (!gateway->listen(QHostAddress(QString::fromStdString(m_options.address)), static_cast<std::uint16_t>(port),
                             error)) {
            return false;
        }
        const auto& mac = gateway->identity().macAddress;
        print("gateway " + QByteArray::number(number + 1) + ": " + gateway->address().toString().toLatin1() + ':' +
              QByteArray::number(gateway->port()) + " (TCP and UDP), MAC " +
              QByteArray(reinterpret_cast<const char*>(mac.data()), static_cast<int>(mac.size())).toHex(':'));
        m_gateways.push_back(std::move(gateway));
    }
    return true;
}

bool CSimProgram::startDetection(QString& error)
{
    if (!m_detection.listen(static_cast<std::uint16_t>(m_options.detectPort), error)) {
        return false;
    }
    m_detection.setFaults(m_options.detectionFaults);
    for (const auto& gateway : m_gateways) {
        m_detection.addGateway(*gateway);
    }
    print("ident requests are answered on port " + QByteArray::number(m_options.detectPort));
    if (m_options.verbose) {
        connect(&m_detection, &CSimDetection::asked, this, [](const QHostAddress& host, std::uint16_t port) {
            print("ident request from " + host.toString().toLatin1() + ':' + QByteArray::number(port));
        });
    }
    return true;
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

    const QByteArray name = "gateway " + QByteArray::number(number + 1);
    connect(gateway, &CSimGateway::hostConnected, this, [this, gateway] { onHostConnected(*gateway); });
    connect(gateway, &CSimGateway::messageReceived, this, [this] { ++m_fromHosts; });
    connect(gateway, &CSimGateway::requestReceived, this, [this, name](int command, const QByteArray& payload) {
        startTraffic(); // the first request: a host is there and listens
        if (m_options.verbose) {
            print(name + ": command " + QByteArray::number(command, 16).rightJustified(2, '0') + ' ' +
                  payload.toHex(' '));
        }
    });
    if (m_options.verbose) {
        connect(gateway, &CSimGateway::hostConnected, this, [name] { print(name + ": host connected"); });
        connect(gateway, &CSimGateway::hostDisconnected, this, [name] { print(name + ": host gone"); });
    }
    if (m_options.status >= 0) {
        auto* const timer = new QTimer(gateway);
        connect(timer, &QTimer::timeout, gateway,
                [this, gateway] { gateway->sendStatus(static_cast<std::uint8_t>(m_options.status)); });
        timer->start(m_options.statusEveryMs);
    }
    return made;
}

void CSimProgram::onHostConnected(CSimGateway& gateway)
{
    if (m_options.dropAfterMs > 0) {
        QTimer::singleShot(m_options.dropAfterMs, &gateway, &CSimGateway::dropLinks);
    }
}

void CSimProgram::startTraffic()
{
    if (m_trafficStarted) {
        return;
    }
    m_trafficStarted = true;
    if (!m_options.replay.empty()) {
        m_replay.start();
    }
    m_generator.start(m_options.generate);
    if (m_options.flood > 0) {
        for (const auto& gateway : m_gateways) {
            gateway->flood(m_options.flood);
        }
    }
}

void CSimProgram::finish(ESimExitCode exitCode)
{
    print("messages: " + QByteArray::number(static_cast<qulonglong>(m_fromHosts)) + " from hosts, " +
          QByteArray::number(static_cast<qulonglong>(m_replay.sent())) + " replayed, " +
          QByteArray::number(static_cast<qulonglong>(m_generator.sent())) + " generated");
    QCoreApplication::exit(exitCode);
}

} // namespace vexmor::Sim
