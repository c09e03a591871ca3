#include "t93Fixture.h"

#include <QTranslator>

#include <atomic>
#include <thread>

using namespace vexmor::Test;

namespace
{
/// A language in which everything is shouted.
struct SShout : QTranslator {
    bool isEmpty() const override { return false; }
    QString translate(const char*, const char* text, const char*, int) const override
    {
        return QString::fromLatin1(text).toUpper();
    }
};
} // namespace

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
                const int code = can->readMessage(next);
                if (code != RC_OK) {
                    wrong += code == RC_QUEUE_EMPTY || code == RC_NOT_OPENED ? 0 : 1;
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

    void textsWhileTheLanguageChanges()
    {
        constexpr int CHANGES = 40000;
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        const auto texts = [&can] {
            return QStringList{can->errorCodeToString(4), can->errorCodeToString(103), can->interfaceErrorToString(0)};
        };
        const QStringList quiet = texts();
        std::atomic<bool> stop{false};
        std::atomic<int> wrong{0};
        std::thread asker([&] {
            while (!stop) {
                const QStringList now = texts();
                for (int i = 0; i < quiet.size(); ++i) {
                    wrong += now.at(i) == quiet.at(i) || now.at(i) == quiet.at(i).toUpper() ? 0 : 1;
                }
            }
        });
        SShout shout;
        for (int i = 0; i < CHANGES; ++i) {
            i % 2 == 0 ? QCoreApplication::installTranslator(&shout) : QCoreApplication::removeTranslator(&shout);
        }
        stop = true;
        asker.join();
        QCOMPARE(wrong.load(), 0);
        QCOMPARE(texts(), quiet);
    }
};

QTEST_GUILESS_MAIN(ThreadsTest)
#include "tst_threads.moc"
