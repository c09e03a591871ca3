#include "t93Fixture.h"

#include <thread>

using namespace vexmor::Test;

namespace
{
/// Acts over and over in another thread while it exists.
struct SOtherThread {
    ~SOtherThread()
    {
        isEnding = true;
        thread.join();
    }
    const std::function<void()> act;
    std::atomic<bool> isEnding{false};
    std::thread thread{[this] {
        while (!isEnding) {
            act();
        }
    }};
};

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
        std::atomic<int> taken{0};
        std::atomic<int> wrong{0};
        const SOtherThread reader{[&, can = host.can.get(), last = -1]() mutable {
            CCanMessage next;
            if (can->readMessage(next) != RC_OK) {
                std::this_thread::yield();
                return;
            }
            const int number = next.id().value(); // flood counts up; a reopening starts again at 0
            wrong += next.length() == 8 && (number == last + 1 || number == 0) ? 0 : 1;
            last = number;
            ++taken;
        }};
        for (int round = 1; round <= ROUNDS; ++round) {
            host.gateway.flood(500);
            QTRY_COMPARE(taken.load(), round * 500);
            host.can->closeCommunication();
            QTRY_COMPARE(host.gateway.tcpHostCount(), 0);
            QCOMPARE(host.can->openCommunication(), RC_OK);
            QTRY_COMPARE(host.gateway.tcpHostCount(), 1);
        }
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
        std::atomic<int> wrong{0};
        SShout shout;
        {
            const SOtherThread asker{[&] {
                const QStringList now = texts();
                for (int i = 0; i < quiet.size(); ++i) {
                    wrong += now.at(i) == quiet.at(i) || now.at(i) == quiet.at(i).toUpper() ? 0 : 1;
                }
            }};
            for (int i = 0; i < CHANGES; ++i) {
                i % 2 == 0 ? QCoreApplication::installTranslator(&shout) : QCoreApplication::removeTranslator(&shout);
            }
        }
        QCOMPARE(wrong.load(), 0);
        QCOMPARE(texts(), quiet);
    }
};

QTEST_GUILESS_MAIN(ThreadsTest)
#include "tst_threads.moc"
