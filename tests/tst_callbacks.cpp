#include "t93Fixture.h"

#include <QEventLoop>
#include <QTimer>

#include <functional>

using namespace vexmor::Test;

Q_DECLARE_METATYPE(vexmor::Test::Protocol)

namespace
{
std::function<void()> s_act;

void actOnce()
{
    if (s_act) {
        std::exchange(s_act, nullptr)();
    }
}

int spy(const CCanInterface&, bool, const CCanMessage& message)
{
    actOnce();
    return static_cast<int>(message.id().value()); // still readable
}
} // namespace

/// Where the driver calls the host, the host does what it likes to the interface; the address sanitizer watches.
class CallbacksTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hostActsInACallback_data()
    {
        QTest::addColumn<Protocol>("protocol");
        QTest::addColumn<QByteArray>("place");
        QTest::addColumn<QByteArray>("act");
        for (const char* place : {"spy receive", "spy send", "error slot"}) {
            for (const char* act : {"close", "reopen", "delete", "close in a nested loop", "reset"}) {
                QTest::addRow("TCP, %s, %s", place, act)
                    << CCommonInfo::eProtocolTcp << QByteArray(place) << QByteArray(act);
                QTest::addRow("UDP, %s, %s", place, act)
                    << CCommonInfo::eProtocolUdp << QByteArray(place) << QByteArray(act);
            }
        }
    }
    void hostActsInACallback()
    {
        QFETCH(Protocol, protocol);
        QFETCH(QByteArray, place);
        QFETCH(QByteArray, act);
        SOpenInterface host(protocol);
        QVERIFY(host.settled);
        host.gateway.setMaxClients(2); // a reopening host may come before the old link is gone
        s_act = [&] {
            if (act == "close") {
                host.can->closeCommunication();
            } else if (act == "reopen") {
                host.can->closeCommunication();
                QCOMPARE(host.can->openCommunication(), 0);
            } else if (act == "delete") {
                host.errors.reset();
                host.can.reset();
            } else if (act == "reset") {
                QCOMPARE(host.can->resetCommunication(0), 0);
            } else {
                QEventLoop loop;
                QTimer::singleShot(0, &loop, [&] {
                    host.can->closeCommunication();
                    loop.quit();
                });
                loop.exec();
                QCoreApplication::processEvents();
            }
        };
        if (place == "error slot") {
            connect(host.can.get(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
        } else {
            host.can->setSpyHandler(spy);
        }

        if (place == "spy send") {
            const int code = host.can->writeMessage(message(0x100));
            QCOMPARE(code, act == "reopen" || act == "reset" ? 0 : 102);
        } else {
            // Several frames in one read: what follows the first must not reach a session that has ended.
            host.gateway.sendRaw(frame(0x42, hex("01")) + frame(0x00, hex("0101")) + frame(0x00, hex("0102")) +
                                 frame(0x42, hex("02")));
        }
        QTRY_VERIFY(!s_act);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QTest::qWait(20);
        if (act == "delete") {
            return;
        }
        // It works on, or again.
        if (!host.can->isOpened()) {
            QCOMPARE(host.can->openCommunication(), 0);
        }
        if (act == "reopen" || act == "reset") {
            CCanMessage stale;
            while (host.can->readMessage(stale) == 0) {
                QVERIFY(act == "reset" || place != "spy receive");
            }
        }
        QTRY_VERIFY(host.gateway.tcpHostCount() + host.gateway.udpHostCount() >= 1);
        host.can->setSpyHandler(nullptr);
        CCanMessage received;
        QVERIFY(QTest::qWaitFor([&] {
            host.bus.send(message(0x321));
            QTest::qWait(10);
            return host.can->readMessage(received) == 0 && received == message(0x321);
        }));
    }

    void hostActsWhileItOpens_data()
    {
        QTest::addColumn<QByteArray>("act");
        QTest::addColumn<int>("code");
        QTest::newRow("close") << QByteArray("close") << 103;
        QTest::newRow("delete") << QByteArray("delete") << 103;
        QTest::newRow("reopen") << QByteArray("reopen") << 1;
    }
    void hostActsWhileItOpens()
    {
        QFETCH(QByteArray, act);
        CRawGateway gateway;
        auto can = makeInterface(gateway.port());
        CCanInterface* const interface = can.get();
        QTimer::singleShot(0, this, [&] { // pending when the open processes events
            if (act == "delete") {
                can.reset();
                return;
            }
            can->closeCommunication();
            if (act == "reopen") {
                QCOMPARE(can->openCommunication(), 0);
            }
        });
        QTEST(interface->openCommunication(), "code");
        QVERIFY(!can || can->isOpened() == (act == "reopen"));
    }

    void onInterfaceError(int /*error*/) { actOnce(); }
};

QTEST_GUILESS_MAIN(CallbacksTest)
#include "tst_callbacks.moc"
