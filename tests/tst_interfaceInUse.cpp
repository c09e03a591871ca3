#include "apps/host/interfaceInUse.h"
#include "apps/host/messageFilter.h"
#include "t93Fixture.h"

using namespace vexmor;
using namespace vexmor::Apps;
using namespace vexmor::Test;

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
            const QByteArray state = QByteArray(" ") + connectionName(connection());
            states += states.endsWith(state) ? QByteArray() : state;
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
    QByteArray states; ///< Names of the states, in their order.
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
    void connectionFollowsTheEvidence()
    {
        const std::pair<SEvidence, const char*> cases[] = {
            {{false, true, 0, 800}, "closed"},      {{true, false, 0, 800}, "lost"},
            {{true, true, -1, 800}, "open"},        {{true, true, 0, 800}, "connected"},
            {{true, true, 2400, 800}, "connected"}, {{true, true, 2401, 800}, "silent"},
            {{true, true, 300, 0}, "connected"},    {{true, true, 301, 0}, "silent"}, // of a poll time of 100 ms
        };
        for (const auto& [evidence, name] : cases) {
            QCOMPARE(connectionName(connectionOf(evidence)), name);
        }
        SInterfaceStatus status, lostOnce, loaded;
        lostOnce.losses = 1;
        loaded.busload = 0;
        QVERIFY(!(status == lostOnce));
        QVERIFY(!(status == loaded));
        status.connection = EConnection::eSilent;
        status.lastFrame = SInterfaceStatus::Clock::now() - std::chrono::milliseconds(12'500);
        QCOMPARE(connectionText(status), "silent for 12 s"_s);
    }

    void filters()
    {
        const std::pair<const char*, const char*> cases[] = {
            {"123-123 7fe", "123 7FE "}, {"123-7FF", "123 7FE 7FF "}, {"7FF:7FE", "7FE 7FF "},
            {"0~7FF", "123 7FE 7FF "},   {"0~7FF 7FF", "7FF "},       {"0-7FF 123~7FF", "000 7FE 7FF "},
        };
        for (const auto& [typed, expected] : cases) {
            std::vector<SFilter> filters;
            for (const QString& text : list(QString::fromLatin1(typed))) {
                filters.push_back(*readFilter(text));
            }
            QByteArray passed;
            for (const char* id : {"000 ", "123 ", "7FE ", "7FF "}) {
                passed += passesFilters(filters, message(QByteArray(id, 3).toUShort(nullptr, 16))) ? id : "";
            }
            QCOMPARE(passed, QByteArray(expected));
        }
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
        QVERIFY2(use.states.endsWith(" connected silent connected"), use.states);
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
        QCOMPARE(use.states, QByteArray(" open connected"));
    }

    void lossAndReturnAreReportedOnce()
    {
        SUse use;
        use.open(use.gateway.port());
        QVERIFY(use.interface->send(message(0x100))); // waits until the interface is open
        QTRY_COMPARE(use.fetch(), QStringList{"100 sent"_s});
        const QSignalSpy resets(use.interface.get(), &CInterfaceInUse::wasReset);
        use.gateway.setFaults(faulty(&SSimFaults::refuse));
        for (std::uint16_t id = 1; id <= 3; ++id) {
            use.bus.send(message(id));
        }
        use.gateway.sendStatus(0x01);
        QTRY_COMPARE(use.fetch(), list("100 sent|1|2|3|error 5 x1"_s));
        use.gateway.dropLinks();
        QTRY_COMPARE(use.connection(), EConnection::eLost);
        QCOMPARE(connectionTextWithReason(use.interface->status()), "lost, trying again (TCP connection lost.)"_s);
        QTRY_COMPARE(use.fetch().last(), "error 0 x1"_s);
        use.interface->reset();
        QVERIFY(use.interface->send(message(0x101)));
        QTRY_VERIFY(use.fetch().contains("101 109"_s) && use.fetch().contains("error 4 x1"_s)); // in any order
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
        QVERIFY(resets.isEmpty());
        QCOMPARE(use.interface->status().losses, 1U);
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
        QVERIFY(isOnce || !QTest::qWaitFor([&] { return use.interface->status().hasLink(); }, 3500)); // two attempts
        use.gateway.setFaults({});
        if (isOnce) {
            QVERIFY(!use.interface->send(message(1)));
        } else {
            QTRY_COMPARE(use.connection(), EConnection::eConnected);
            QCOMPARE(use.interface->status().code, 0);
        }
    }

    void commandsAreExecutedInOrder()
    {
        SUse use;
        use.open(use.gateway.port());
        for (int key = 1000; key < 3000; ++key) { // some of them while the interface is being opened
            use.interface->setCyclic(key, message(7), 60'000);
        }
        QTRY_COMPARE(use.fetch(), QVector<QString>(2000, "7 sent"_s).toList());
        use.seen.clear();
        use.interface->setCyclic(1, message(1), 5);
        use.interface->setCyclic(1, message(2), 1); // replaces the first one
        QTRY_VERIFY(use.fetch().count("2 sent"_s) >= 3);
        QCOMPARE(use.fetch().mid(0, 2), list("1 sent|2 sent"_s));
        QCOMPARE(use.fetch().count("1 sent"_s), 1);
        use.interface->setCyclic(1, message(2), 0);
        use.interface->setCyclic(2, message(3), 60'000);
        use.interface->reset();
        QVERIFY(QSignalSpy(use.interface.get(), &CInterfaceInUse::wasReset).wait());
        use.seen.clear();
        for (int i = 0; i < 2000; ++i) {
            QVERIFY(use.interface->send(message(4)));
        }
        CInterfaceInUse::close(std::move(use.interface), 5000);
        QCOMPARE(use.fetch().count("4 sent"_s), 2000);
        QVERIFY(use.fetch().count("2 sent"_s) <= 1); // the last one may have been delivered late
        use.open(use.gateway.port());
        // The gateway notices the end of the last connection late, and refuses another one until then.
        QThread::msleep(300);
        QTRY_COMPARE_WITH_TIMEOUT(use.connection(), EConnection::eConnected, 20000);
    }

    void nothingWaitsForAGatewayThatDoesNotAnswer()
    {
        constexpr int LIMIT = CInterfaceInUse::SEND_LIMIT;
        const SDeafPort deaf;
        SUse use;
        const SClock clock;
        use.open(deaf.serverPort());
        for (int i = 0; i <= LIMIT; ++i) {
            QCOMPARE(use.interface->send(message(1)), i < LIMIT);
        }
        QVERIFY2(clock.elapsed() < 300, qPrintable(QString::number(clock.elapsed())));
        CInterfaceInUse::endAll();
        QVERIFY2(clock.elapsed() > 500, "the thread was still opening it");
        QCOMPARE(use.fetch().count("1 2"_s), LIMIT); // refused with code 2: not opened
    }
};

QTEST_GUILESS_MAIN(InterfaceInUseTest)
#include "tst_interfaceInUse.moc"
