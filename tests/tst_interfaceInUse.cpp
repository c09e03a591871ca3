#include "apps/host/gatewayAddress.h"
#include "apps/host/interfaceInUse.h"
#include "apps/host/messageFilter.h"
#include "t93Fixture.h"

using namespace vexmor;
using namespace vexmor::Apps;
using namespace vexmor::Test;

Q_DECLARE_METATYPE(EConnection)

namespace
{
/// A short interval of polls: the gateway counts as silent after 300 ms.
constexpr int POLL_MS = 100;

/// An interface in use, with its gateway and a record of deliveries and states.
struct SUse : SGateway {
    using EOpening = CInterfaceInUse::EOpening;
    ~SUse() { CInterfaceInUse::endAll(); }
    void open(std::uint16_t port, EOpening opening = EOpening::eOnce)
    {
        auto can = makeInterface(port, rowProtocol());
        can->setProperty("Port", port); // also sets the port text of the description
        can->setProperty("BusloadPollTime", POLL_MS);
        CCommonInfo info = can->commonInfo(); // as loaded from a store
        info.setInterfaceId("old"_s);
        info.setFirmwareVersion("old"_s);
        can->setCommonInfo(info);
        QObject::connect(mailbox.get(), &CMailbox::filled, [this] { fetch(); }); // fetched at once, in the other thread
        interface = std::make_unique<CInterfaceInUse>(std::move(can), mailbox, std::uint16_t(7), opening);
        QObject::connect(interface.get(), &CInterfaceInUse::statusChanged, [this] {
            const QString text = connectionText(interface->status()).section(" for"_s, 0, 0);
            if (texts.isEmpty() || texts.last() != text) {
                texts.append(text);
            }
        });
    }
    EConnection connection() const { return interface->status().connection; }
    /// Fetches the delivered records and errors. Returns all so far; sent messages are "ID sent" or "ID CODE".
    QStringList fetch()
    {
        const std::lock_guard lock(mutex);
        SDelivery delivery;
        mailbox->take(delivery);
        for (const SBusRecord& one : delivery.records) {
            const QString outcome = one.code == 0 ? "sent"_s : QString::number(one.code);
            seen += QString::number(one.message.id().value(), 16) + (one.sent ? " "_s + outcome : QString());
            isInOrder = isInOrder && one.microseconds > std::exchange(lastTime, one.microseconds) && one.source == 7;
        }
        for (const SErrorRecord& one : delivery.errors) {
            seen += "error %1 x%2"_s.arg(one.error).arg(one.count);
        }
        return seen;
    }

    std::shared_ptr<CMailbox> mailbox = std::make_shared<CMailbox>();
    std::unique_ptr<CInterfaceInUse> interface;
    QStringList texts; ///< Texts of the states, in their order.
    std::mutex mutex;  ///< Guards the members below.
    QStringList seen;
    std::int64_t lastTime = 0;
    std::atomic<bool> isInOrder{true};
};
} // namespace

/// The class with which all host applications here use an interface, and the functions around it.
class InterfaceInUseTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void connectionFollowsTheEvidence_data()
    {
        const auto row = columns<bool, bool, int, int, EConnection>("open", "link", "since", "poll", "connection");
        row("closed", false, true, 0, 800, EConnection::eClosed);
        row("no link", true, false, 0, 800, EConnection::eLost);
        row("never heard", true, true, -1, 800, EConnection::eOpen);
        row("heard now", true, true, 0, 800, EConnection::eConnected);
        row("three polls ago", true, true, 2400, 800, EConnection::eConnected);
        row("longer ago", true, true, 2401, 800, EConnection::eSilent);
        row("no poll time, three of 100 ms ago", true, true, 300, 0, EConnection::eConnected);
        row("no poll time, longer ago", true, true, 301, 0, EConnection::eSilent);
    }
    void connectionFollowsTheEvidence()
    {
        const SEvidence evidence{cell<bool>("open"), cell<bool>("link"), cell<int>("since"), cell<int>("poll")};
        QTEST(connectionOf(evidence), "connection");
    }

    void addresses_data()
    {
        const auto row = columns<QString>("read"); // an empty text: refused
        row("10.0.0.255:65535:udp", "10.0.0.255 65535 UDP 0"_s);
        row("IP=010.0.0.008:1:TCP", "10.0.0.8 1 TCP 0"_s);
        row("0.0.0.0:UDP", "0.0.0.0  UDP 0"_s);
        for (const char* wrong : {"10.0.0.256", "10.0.0", "10.0.0.1.1", "10.0.0.+1", "10.0.0.\t1", "10.0.0.1:0",
                                  "10.0.0.1:65536", "10.0.0.1:-1", "10.0.0.1:1:NA", "10.0.0.1:1:TCP:1", "IP=10.0.0.1:1",
                                  "ip=10.0.0.1:1:TCP", "", "10.0.0.1:8 contradicts"}) {
            row(wrong, {});
        }
    }
    void addresses()
    {
        const bool hasPort = rowName().endsWith("contradicts"); // an option contradicts the address
        const Settings options = hasPort ? Settings{{StoreKey::PORT, "9"_s}} : Settings();
        auto read = readAddress(QString::fromLatin1(rowName().split(' ').first()), options);
        QStringList parts;
        for (const QLatin1String key : {StoreKey::ADDRESS, StoreKey::PORT, StoreKey::PROTOCOL, StoreKey::BAUDRATE}) {
            parts += read ? QStringList{read->value(key)} : QStringList();
        }
        QTEST(parts.join(QLatin1Char(' ')), "read");
    }

    void filters_data()
    {
        const auto row = columns<QString>("passed"); // which of 000, 123, 7FE and 7FF pass
        row("123-123", "123"_s);
        row("123-7FF", "123 7FE 7FF"_s);
        row("7FE:7FE", "7FE 7FF"_s);
        row("0~7FF", "123 7FE 7FF"_s);
        row("0~7FF 7FF", "7FF"_s);
        row("0-7FF 123~7FF", "000 7FE 7FF"_s);
    }
    void filters()
    {
        std::vector<SFilter> filters;
        for (const QString& text : list(QString::fromLatin1(rowName()))) {
            filters.push_back(*readFilter(text));
        }
        QStringList passed;
        for (const QString& id : list("000 123 7FE 7FF"_s)) {
            passed += passesFilters(filters, message(id.toUShort(nullptr, 16))) ? QStringList{id} : QStringList();
        }
        QTEST(passed.join(QLatin1Char(' ')), "passed");
    }

    void mailboxIsBounded()
    {
        CMailbox mailbox(10);
        int wakeUps = 0;
        connect(&mailbox, &CMailbox::filled, this, [&] { ++wakeUps; });
        for (int i = 0; i < 15; ++i) {
            mailbox.post({{i, message(1), 0, false, 0}});
            mailbox.post({{i, message(1), 0, true, 0}, {i, message(1), 0, true, 0}});
            mailbox.postError({i, std::uint16_t(i == 0), i % 2, 1});
        }
        SDelivery delivery;
        mailbox.take(delivery);
        QCOMPARE(delivery.records.size(), std::size_t(20));
        QCOMPARE(delivery.lost, std::uint64_t(25));
        QCOMPARE(delivery.errors.size(), std::size_t(3));
        QCOMPARE(delivery.errors.back().count, std::uint64_t(7));
        QCOMPARE(wakeUps, 1);
        mailbox.take(delivery);
        QVERIFY(delivery.isEmpty());
        mailbox.postError({});
        QCOMPARE(wakeUps, 2);
    }

    void gatewayGoesSilentAndIsHeardAgain_data() { rows({"TCP", "UDP"}); }
    void gatewayGoesSilentAndIsHeardAgain()
    {
        SUse use;
        const bool isUdp = rowName() == "UDP";
        use.gateway.setFaults(isUdp ? faulty(&SSimFaults::mute) : SSimFaults()); // like a gateway that is switched off
        use.open(use.gateway.port());
        if (isUdp) {
            QTRY_COMPARE(use.connection(), EConnection::eOpen);
            QCOMPARE(connectionText(use.interface->status()), "open, no answer yet"_s);
            QCOMPARE(use.interface->status().interfaceId + use.interface->status().firmwareVersion, QString());
            QVERIFY(use.interface->send(message(1))); // over UDP, the loss is not noticed
            QTRY_COMPARE(use.fetch(), QStringList{"1 sent"_s});
            use.gateway.setFaults({});
        }
        QTRY_COMPARE(use.connection(), EConnection::eConnected); // over UDP, the requests are repeated
        QTRY_VERIFY(use.interface->status().isIdentified());
        QTRY_VERIFY(use.interface->status().busload);
        use.gateway.setFaults(faulty(&SSimFaults::mute));
        QTRY_COMPARE(use.connection(), EConnection::eSilent);
        QVERIFY(!use.interface->status().busload);
        QVERIFY(use.interface->status().hasLink());
        const QSignalSpy requests(&use.gateway, &CSimGateway::requestReceived);
        // Requests are repeated only over UDP, where they can be lost.
        QCOMPARE(QTest::qWaitFor([&] { return !requests.isEmpty(); }, 3500), isUdp);
        use.gateway.setFaults({});
        isUdp ? void() : use.bus.send(message(1));
        QTRY_COMPARE(use.connection(), EConnection::eConnected);
        QCOMPARE(use.texts.mid(use.texts.indexOf("connected"_s)), list("connected silent connected"_s));
    }

    /// A gateway that is not polled answers other requests, so its state does not alternate.
    void silenceOverUdpIsAnUnansweredRequest_data() { rows({"UDP"}); }
    void silenceOverUdpIsAnUnansweredRequest()
    {
        SUse use;
        use.gateway.setIdentity(withoutBusload());
        int requests = 0;
        connect(&use.gateway, &CSimGateway::requestReceived, this,
                [&](int command) { requests += command == RM_CMD_MAC_ADDRESS ? 1 : 0; });
        use.open(use.gateway.port());
        QTRY_VERIFY(requests >= 4);
        QCOMPARE(use.texts, list("open, no answer yet|connected"_s));
    }

    void lossAndReturnAreReportedOnce()
    {
        SUse use;
        use.open(use.gateway.port());
        QTRY_COMPARE(use.connection(), EConnection::eConnected);
        QVERIFY(use.interface->send(message(0x100)));
        QTRY_COMPARE(use.fetch(), QStringList{"100 sent"_s});
        use.gateway.setFaults(faulty(&SSimFaults::refuse));
        for (std::uint16_t id = 1; id <= 3; ++id) {
            use.bus.send(message(id));
        }
        use.gateway.sendStatus(0x01);
        use.gateway.sendStatus(0x01);
        QTRY_COMPARE(use.fetch(), list("100 sent|1|2|3|error 5 x1|error 5 x1"_s));
        use.gateway.dropLinks();
        QTRY_COMPARE(use.connection(), EConnection::eLost);
        QCOMPARE(connectionTextWithReason(use.interface->status()), "lost, trying again (TCP connection lost.)"_s);
        QTRY_COMPARE(use.fetch().last(), "error 0 x1"_s);
        QVERIFY(use.interface->send(message(0x101)));
        QTRY_COMPARE(use.fetch().last(), "101 109"_s);
        bool isKnown = true; // messages arrive only after the link is reported as back
        connect(use.mailbox.get(), &CMailbox::filled, &use.gateway,
                [&] { isKnown = isKnown && use.connection() != EConnection::eLost; });
        connect(&use.gateway, &CSimGateway::hostConnected, &use.gateway, [&] { use.bus.send(message(4)); });
        use.gateway.setFaults({});
        QTRY_COMPARE(use.fetch().last(), "4"_s);
        QTRY_COMPARE(use.connection(), EConnection::eConnected);
        QVERIFY(isKnown);
        QVERIFY(use.isInOrder);
        QVERIFY(!use.fetch().contains("101 sent"_s));
    }

    void triesUntilOpenWhereAsked_data() { rows({"once", "until open"}); }
    void triesUntilOpenWhereAsked()
    {
        const bool isOnce = rowName() == "once";
        SUse use;
        use.gateway.setFaults(faulty(&SSimFaults::refuse));
        use.open(use.gateway.port(), isOnce ? SUse::EOpening::eOnce : SUse::EOpening::eUntilOpen);
        QCOMPARE(use.connection(), EConnection::eConnecting);
        QVERIFY(use.interface->send(message(5)));
        QTRY_COMPARE(use.fetch(), QStringList{"5 2"_s}); // refused with code 2: not opened
        QTRY_COMPARE(use.connection(), isOnce ? EConnection::eClosed : EConnection::eLost);
        QCOMPARE(use.interface->status().code, int(RC_TCP_CONNECT_FAILED));
        QVERIFY(!use.interface->status().reason.isEmpty());
        use.gateway.setFaults({});
        if (isOnce) {
            QVERIFY(!use.interface->send(message(1)));
        } else {
            QTRY_COMPARE(use.connection(), EConnection::eConnected);
            QCOMPARE(use.interface->status().code, 0);
        }
    }

    void sendingIsBoundedWhileItConnects()
    {
        constexpr int LIMIT = CInterfaceInUse::SEND_LIMIT;
        const SDeafPort deaf;
        SUse use;
        use.open(deaf.serverPort());
        for (int i = 0; i <= LIMIT; ++i) {
            QCOMPARE(use.interface->send(message(1)), i < LIMIT);
        }
        QTRY_COMPARE(use.connection(), EConnection::eClosed);
        QTRY_COMPARE(use.fetch().size(), LIMIT);
        CInterfaceInUse::endAll();
        QCOMPARE(use.fetch().count("1 2"_s), LIMIT); // refused with code 2: not opened
    }

    void nothingWaitsForAGatewayThatDoesNotAnswer()
    {
        const SDeafPort deaf;
        SUse use;
        const SClock clock;
        use.open(deaf.serverPort());
        use.interface.reset();
        QVERIFY2(clock.elapsed() < 300, qPrintable(QString::number(clock.elapsed())));
        CInterfaceInUse::endAll();
        QVERIFY2(clock.elapsed() > 500, "the thread was still opening it");
    }
};

QTEST_GUILESS_MAIN(InterfaceInUseTest)
#include "tst_interfaceInUse.moc"
