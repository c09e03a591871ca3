#include "t93Fixture.h"

#include <atomic>
#include <thread>

using namespace vexmor::Test;

/// Another thread reads messages while the owner of the interface receives, closes, reopens and changes its queue.
class ThreadsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readerInAnotherThread()
    {
        constexpr int ROUNDS = 20;
        SOpenInterface host;
        QVERIFY(host.settled);
        std::atomic<bool> stop{false};
        std::atomic<int> taken{0};
        std::atomic<int> wrong{0};
        std::thread reader([&, can = host.can.get()] {
            int last = -1; // flood counts up; a reopening starts again at 0
            for (CCanMessage next; !stop;) {
                if (can->readMessage(next) != RC_OK) {
                    std::this_thread::yield();
                    continue;
                }
                const int number = next.id().value();
                wrong += next.length() == 8 && (number == last + 1 || number == 0) ? 0 : 1;
                last = number;
                ++taken;
            }
        });
        bool ok = true;
        for (int round = 0; ok && round < ROUNDS; ++round) {
            const int before = taken;
            host.gateway.flood(500);
            ok = QTest::qWaitFor([&] { return taken >= before + 500; });
            host.can->closeCommunication();
            ok = ok && QTest::qWaitFor([&] { return host.gateway.tcpHostCount() == 0; }) &&
                 host.can->openCommunication() == RC_OK &&
                 QTest::qWaitFor([&] { return host.gateway.tcpHostCount() == 1; });
        }
        stop = true;
        reader.join();
        QVERIFY(ok);
        QCOMPARE(wrong.load(), 0);
        QCOMPARE(taken.load(), ROUNDS * 500);
    }
};

QTEST_GUILESS_MAIN(ThreadsTest)
#include "tst_threads.moc"
