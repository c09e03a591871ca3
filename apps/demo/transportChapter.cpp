#include "apps/demo/transportChapter.h"

#include "apps/host/interfaceSettings.h"
#include "canlog/candumpLog.h"
#include "cim/canInterfacePlugin.h"
#include "cim/resultCodes.h"

#include <QElapsedTimer>
#include <QFileInfo>

#include <cmath>

namespace vexmor::Apps::Demo
{
namespace
{
constexpr int EXAMPLE_COUNT = 4;
constexpr int CALM_RATE = 300;  ///< messages a second
constexpr int BUSY_RATE = 1500; ///< about a third of a bus of 500 kbit/s
constexpr int RECEIVE_MS = 1500;
constexpr int LOG_LIMIT_MS = 5000;
constexpr int LOAD_SETTLE_MS = 1500; ///< longer than the measuring interval and a poll of the library together
constexpr int LOAD_MEASURE_MS = 1000;
constexpr int LOAD_TOLERANCE = 3; ///< percent points
constexpr int RECONNECT_LIMIT_MS = 8000;
constexpr int ERROR_CONNECTION_LOST = 0;
constexpr std::uint16_t OUTAGE_ID = 0x7DE;

QString number(double value, int digits)
{
    return QString::number(value, 'f', digits);
}
} // namespace

CTransportChapter::CTransportChapter(CNarrator& narrator, const SPlugin& plugin, const QString& logFile, bool tcp)
    : m_narrator(narrator), m_plugin(plugin), m_logFile(logFile), m_tcp(tcp)
{
}

void CTransportChapter::run()
{
    if (!open()) {
        return;
    }
    identify();
    receive();
    sendAndAnswer();
    measureLoad();
    if (m_tcp) {
        loseLink();
        regainLink();
    }
    close();
}

bool CTransportChapter::open()
{
    m_narrator.step(QStringLiteral("Open the interface"), m_tcp ? QStringLiteral(R"(
            The library connects to the gateway, tells it the bit rate of the bus and asks who it is.
            From then on it works in the host's event loop.)")
                                                                : QStringLiteral(R"(
            The same once more with one setting changed: every frame now travels in a datagram. There is
            no connection, so none can be lost either: a gateway that is switched off is just silent.)"));
    std::unique_ptr<Cim::CCanInterface> canInterface(m_plugin.object->createInterface());
    const Failure refused =
        applySettings(*canInterface, {{StoreKey::ADDRESS, m_stage.gateway().address().toString()},
                                      {StoreKey::PORT, QString::number(m_stage.gateway().port())},
                                      {StoreKey::PROTOCOL, m_tcp ? QStringLiteral("TCP") : QStringLiteral("UDP")},
                                      {StoreKey::BAUDRATE, QStringLiteral("500")},
                                      {StoreKey::POLL_TIME, QStringLiteral("200")},
                                      {StoreKey::MEASURE_TIME, QStringLiteral("1000")}});
    if (refused) {
        return m_narrator.check(false, refused->text);
    }
    m_stage.host(std::move(canInterface));
    QElapsedTimer clock;
    clock.start();
    const int code = this->canInterface().openCommunication();
    if (code != Cim::RC_OK) {
        return m_narrator.check(
            false, QStringLiteral("error %1: %2").arg(code).arg(this->canInterface().errorCodeToString(code)));
    }
    return m_narrator.check(isConnected(), QStringLiteral("%1 is open after %2 ms, the bus runs at %3 kbit/s")
                                               .arg(this->canInterface().commonInfo().port())
                                               .arg(clock.elapsed())
                                               .arg(this->canInterface().baudrate()));
}

void CTransportChapter::identify()
{
    m_narrator.step(QStringLiteral("Who is there?"),
                    QStringLiteral("The gateway's answers fill the description of the interface."));
    const auto& info = canInterface().commonInfo();
    waitUntil(ANSWER_LIMIT_MS, [&info] { return !info.interfaceId().isEmpty() && !info.firmwareVersion().isEmpty(); });
    const Sim::SGatewayIdentity& truth = m_stage.gateway().identity();
    const QByteArray address(reinterpret_cast<const char*>(truth.macAddress.data()),
                             static_cast<int>(truth.macAddress.size()));
    const bool isTruth =
        info.interfaceId() == QString::fromLatin1(address.toHex(':')) &&
        info.firmwareVersion() ==
            QStringLiteral("%1.%2").arg(truth.firmwareMajor).arg(truth.firmwareMinor, 2, 10, QLatin1Char('0'));
    m_narrator.check(
        isTruth, QStringLiteral("MAC address %1, firmware version %2").arg(info.interfaceId(), info.firmwareVersion()));
}

void CTransportChapter::receive()
{
    m_narrator.step(QStringLiteral("Receive"),
                    QStringLiteral(R"(
            Devices on the bus report: %1. The library cuts the gateway's byte stream into CAN messages
            and keeps up to 10,000 for the host to take:)")
                        .arg(m_logFile.isEmpty()
                                 ? QStringLiteral("%1 messages a second").arg(CALM_RATE)
                                 : QStringLiteral("the recording %1").arg(QFileInfo(m_logFile).fileName())));
    m_stage.forget();
    QElapsedTimer clock;
    clock.start();
    playTraffic();
    const double seconds = static_cast<double>(clock.elapsed()) / 1000;
    const auto& sent = m_stage.fromDevices();
    const auto& received = m_stage.received();
    waitUntil(ANSWER_LIMIT_MS, [&] { return received.size() >= sent.size(); });
    for (std::size_t i = 0; i < received.size() && i < EXAMPLE_COUNT; ++i) {
        m_narrator.example(CanLog::formatDump("t93", received[i]));
    }
    m_narrator.example("  ...", EColor::eDim);
    m_narrator.check(
        !sent.empty() && received == sent,
        QStringLiteral("received %1 of the %2 messages that were on the bus in %3 s, each once and in order")
            .arg(received.size())
            .arg(sent.size())
            .arg(number(seconds, 1)));
}

void CTransportChapter::playTraffic()
{
    if (m_logFile.isEmpty()) {
        m_stage.generator().start(CALM_RATE);
        waitFor(RECEIVE_MS);
        m_stage.generator().start(0);
        return;
    }
    Sim::CSimReplay replay(m_stage.bus());
    if (const Failure failure = replay.open(m_logFile, 1, false)) {
        throw *failure;
    }
    QString error;
    bool isDone = false;
    QObject::connect(&replay, &Sim::CSimReplay::finished, [&isDone] { isDone = true; });
    QObject::connect(&replay, &Sim::CSimReplay::failed, [&error, &isDone](const QString& text) {
        error = text;
        isDone = true;
    });
    replay.start();
    waitUntil(LOG_LIMIT_MS, [&isDone] { return isDone; });
    if (!error.isEmpty()) {
        throw wrongUsage(error);
    }
}

void CTransportChapter::sendAndAnswer()
{
    m_narrator.step(QStringLiteral("Send"),
                    QStringLiteral("The host asks a device on the bus, which answers with the data in reverse:"));
    m_stage.forget();
    unsigned char data[] = {0x11, 0x22, 0x33, 0x44};
    const Cim::CCanMessage request(Cim::CCanId::fromValue(CStage::REQUEST_ID), sizeof data, data);
    unsigned char reverse[] = {0x44, 0x33, 0x22, 0x11};
    const Cim::CCanMessage expected(Cim::CCanId::fromValue(CStage::ANSWER_ID), sizeof reverse, reverse);

    QElapsedTimer clock;
    clock.start();
    const int code = m_stage.hosted().send(request);
    double milliseconds = 0;
    const bool answered = code == 0 && waitUntil(ANSWER_LIMIT_MS, [&] {
                              milliseconds = static_cast<double>(clock.nsecsElapsed()) / 1e6;
                              return !m_stage.received().empty();
                          });
    m_narrator.example(CanLog::formatDump("sent    ", request), EColor::eBold);
    if (answered) {
        m_narrator.example(CanLog::formatDump("received", m_stage.received().front()));
    }
    m_narrator.check(answered && m_stage.received().front() == expected,
                     answered ? QStringLiteral("the answer was there after %1 ms").arg(number(milliseconds, 2))
                              : QStringLiteral("no answer (code %1)").arg(code));
}

void CTransportChapter::measureLoad()
{
    m_narrator.step(QStringLiteral("Bus load"), QStringLiteral(R"(
            The devices now report %1 times a second. The gateway measures how busy the bus is, the
            library asks it for the value; beside it what the simulated bus really carried:)")
                                                    .arg(BUSY_RATE));
    m_stage.generator().start(BUSY_RATE);
    waitFor(LOAD_SETTLE_MS);
    double bits = 0;
    QObject counter;
    QObject::connect(&m_stage.bus(), &Sim::CSimBus::messageSent, &counter,
                     [&bits](const Cim::CCanMessage& message) { bits += 46.0 + 8.0 * message.length(); });
    QElapsedTimer clock;
    clock.start();
    waitFor(LOAD_MEASURE_MS);
    const double truth = bits * 100 / static_cast<double>(clock.elapsed()) / m_stage.bus().baudrate();
    const int told = m_stage.hosted().status().busload.value_or(0);
    m_stage.generator().start(0);

    const auto bar = [](double percent) {
        const int filled = qBound(0, static_cast<int>(percent / 2), 50);
        return QByteArray(filled, '#') + QByteArray(50 - filled, '.');
    };
    m_narrator.example("library " + QByteArray::number(told).rightJustified(5) + " %  [" + bar(told) + "]");
    m_narrator.example("truth   " + number(truth, 1).toLatin1().rightJustified(5) + " %  [" + bar(truth) + "]");
    m_narrator.check(told > 0 && std::abs(told - truth) <= LOAD_TOLERANCE,
                     QStringLiteral("they agree within %1 percent points").arg(LOAD_TOLERANCE));
}

void CTransportChapter::loseLink()
{
    m_narrator.step(QStringLiteral("Lose the connection"), QStringLiteral(R"(
            The gateway is switched off. The library tells the host by a number, for which it has a text
            to show to the user:)"));
    Sim::SSimFaults off;
    off.refuse = true;
    m_stage.gateway().setFaults(off);
    m_stage.gateway().dropLinks();
    const bool told = waitUntil(ANSWER_LIMIT_MS, [this] { return m_stage.lastError() >= 0; });
    const QString text = canInterface().interfaceErrorToString(m_stage.lastError()).trimmed();
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        m_narrator.example("| " + line.toLocal8Bit(), EColor::eYellow);
    }
    m_narrator.check(told && m_stage.lastError() == ERROR_CONNECTION_LOST && !isConnected(),
                     QStringLiteral("interface error %1; the interface stays open, its state is 'not connected'")
                         .arg(m_stage.lastError()));

    const int code = m_stage.hosted().send(Cim::CCanMessage(Cim::CCanId::fromValue(OUTAGE_ID), 0, nullptr));
    m_narrator.check(code == Cim::RC_NO_TCP_CONNECTION, QStringLiteral("sending is refused meanwhile: error %1: %2")
                                                            .arg(code)
                                                            .arg(canInterface().errorCodeToString(code)));
}

void CTransportChapter::regainLink()
{
    m_narrator.step(QStringLiteral("Regain the connection"), QStringLiteral(R"(
            The gateway is switched on again. The library tries every 3 s, without the host's help.)"));
    m_stage.gateway().setFaults({});
    QElapsedTimer clock;
    clock.start();
    const bool connected = waitUntil(RECONNECT_LIMIT_MS, [this] { return isConnected(); });
    m_narrator.check(
        connected,
        QStringLiteral("connected again after %1 s").arg(number(static_cast<double>(clock.elapsed()) / 1000, 1)));
    m_stage.forget();
    m_stage.generator().start(CALM_RATE);
    const bool flows = waitUntil(ANSWER_LIMIT_MS, [this] { return m_stage.received().size() >= 10; });
    m_stage.generator().start(0);
    m_narrator.check(flows, QStringLiteral("messages arrive again"));
    m_narrator.check(!m_stage.wasOnBus(OUTAGE_ID),
                     QStringLiteral("what was refused during the outage was not sent after it: no command fires late"));
}

void CTransportChapter::close()
{
    m_narrator.step(QStringLiteral("Close"), QStringLiteral("The gateway is free for the next program."));
    const int code = canInterface().closeCommunication();
    m_narrator.check(code == 0 && !canInterface().isOpened(), QStringLiteral("closed"));
}

} // namespace vexmor::Apps::Demo
