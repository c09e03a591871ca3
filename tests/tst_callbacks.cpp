#include "t93Fixture.h"

#include <thread>

using namespace vexmor::Test;

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
    return static_cast<int>(message.id().value()); // reading it must still be possible
}

/// A translator that returns texts in upper case, and itself reads a text of the interface.
struct SShout : QTranslator {
    explicit SShout(CCanInterface& can) : can(can) {}
    bool isEmpty() const override { return false; }
    QString translate(const char*, const char* text, const char*, int) const override
    {
        return can.errorCodeToString(4).isNull() ? QString() : QString::fromLatin1(text).toUpper();
    }
    CCanInterface& can;
};
} // namespace

/// Actions of a host inside calls from the driver, with the exact order of messages and exact bounds; driverFuzz tests
/// closing, reopening, resetting and deleting there. Also, another thread reads texts while the language changes.
class CallbacksTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void spyHandlerProcessesEvents()
    {
        // Frames are cut into datagrams. After every few frames another datagram arrives, so that a turn of the event
        // loop ends only by the limit of frames.
        constexpr int FRAMES = 0x7FF;
        constexpr int SIZE = 33; // four frames and most of a fifth one
        QByteArray stream;
        QList<CCanMessage> sent;
        for (std::uint16_t id = 0; id < FRAMES; ++id) {
            sent.append(message(id));
            stream += rmFrame(sent.last());
        }
        SOpenInterface host(CCommonInfo::eProtocolUdp, withoutBusload()); // no reply arrives between the messages
        QVERIFY(host.isAllHeard());
        host.can->setSpyHandler(spy);
        const auto sendOne = [&] { host.gateway.sendRaw(stream.left(SIZE)), stream.remove(0, SIZE); };
        int shown = 0;
        std::function<void()> go = [&] {
            ++shown % 4 == 0 ? sendOne() : void();
            s_act = shown < FRAMES ? go : nullptr;
            QCoreApplication::processEvents();
        };
        s_act = go;
        for (int waiting = 0; waiting < 100; ++waiting) {
            sendOne();
        }
        QVERIFY(host.receive(FRAMES) == sent);
        host.bus.send(message(1)); // messages still arrive
        QCOMPARE(host.receive(1).size(), 1);
    }

    void oneTurnOfTheEventLoopIsBounded() // even if each message causes the next one
    {
        SOpenInterface host(CCommonInfo::eProtocolUdp, withoutBusload());
        QVERIFY(host.isAllHeard());
        host.can->setSpyHandler(spy);
        int shown = 0;
        int shownInOneTurn = 0;
        std::function<void()> go = [&] {
            if (shown == 0) {
                QTimer::singleShot(0, this, [&] { shownInOneTurn = shown; });
            }
            s_act = ++shown < 1024 ? go : nullptr;
            host.bus.send(message(1));
        };
        s_act = go;
        host.bus.send(message(1));
        QTRY_COMPARE(shown, 1024);
        QTRY_COMPARE(shownInOneTurn, 256);
        QVERIFY(host.isAllHeard()); // without a read error in the turn that finds nothing
        QCOMPARE(host.errorNumbers(), (QList<int>{5, 5}));
    }

    void readsAheadIsBounded() // reading ahead while a spy handler runs the event loop
    {
        SInterfaceAtRawGateway host;
        host.can->setSpyHandler(spy);
        bool isAllTaken = true;
        s_act = [&] {
            isAllTaken = QTest::qWaitFor([&] { return host.link->bytesToWrite() == 0; }, 1000);
            host.can->closeCommunication();
        };
        host.link->write(rmFrame(message(1)).repeated(1 << 23)); // far more than the kernel buffers
        QTRY_VERIFY(!host.can->isOpened());
        QVERIFY(!isAllTaken);
    }

    void linkIsLostInTheSpyHandler_data()
    {
        const auto row = columns<int>("messages");
        row("a few pieces of the stream", 300);
        row("more pieces than one turn of the event loop takes", 27500);
    }
    void linkIsLostInTheSpyHandler() // the handler runs the event loop
    {
        SInterfaceAtRawGateway host;
        QList<CCanMessage> read;
        const QSignalSpy errors(host.can.get(), SIGNAL(interfaceError(int)));
        host.can->setSpyHandler(spy);
        const auto isLost = [&] { return errorNumbers(errors).contains(0); };
        // Called for each message, which must be readable, and for each error up to error 0.
        std::function<void()> go = [&] {
            const QList<CCanMessage> now = unread(*host.can);
            QCOMPARE(now.size(), errors.isEmpty() ? 1 : 0);
            read += now;
            QCoreApplication::processEvents();
            s_act = isLost() ? nullptr : go;
        };
        s_act = go;
        connect(host.can.get(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
        QByteArray stream;
        QList<CCanMessage> sent;
        for (int number = 0; number < cell<int>("messages"); ++number) {
            sent.append(message(0x111, QByteArray::number(number).rightJustified(8, '0')));
            stream += rmFrame(sent.last());
        }
        host.link->write(stream + frame(0x42, hex("01")));
        host.link->disconnectFromHost();
        QTRY_VERIFY(isLost());
        QVERIFY(read == sent);
        QCOMPARE(errorNumbers(errors), (QList<int>{5, 0}));
        QTRY_VERIFY(isConnected(*host.can)); // the connection is re-established
    }

    void textsWhileTheLanguageChanges()
    {
        constexpr int CHANGES = 40000;
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        const QString quiet = can->interfaceErrorToString(0);
        std::atomic<int> wrong{0};
        SShout shout(*can);
        std::atomic<bool> isEnding{false};
        std::thread reader([&] {
            while (!isEnding) {
                const QString now = can->interfaceErrorToString(0);
                wrong += now == quiet || now == quiet.toUpper() ? 0 : 1;
            }
        });
        for (int i = 0; i < CHANGES; ++i) {
            i % 2 == 0 ? QCoreApplication::installTranslator(&shout) : QCoreApplication::removeTranslator(&shout);
        }
        isEnding = true;
        reader.join();
        QCOMPARE(wrong.load(), 0);
        QCOMPARE(can->interfaceErrorToString(0), quiet);
    }

    void onInterfaceError(int /*error*/) { actOnce(); }
};

QTEST_GUILESS_MAIN(CallbacksTest)
#include "tst_callbacks.moc"
