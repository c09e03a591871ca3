#include "requireTool.h"
#include "shareFixture.h"

#include <QDir>

using namespace vexmor::Test;

namespace
{
/// A broker as Debian has it, on a port of its own.
struct SBroker {
    explicit SBroker(const QByteArray& more = "allow_anonymous true\n")
    {
        QTcpServer free;
        free.listen(QHostAddress(QHostAddress::LocalHost));
        port = free.serverPort();
        QFile file(folder.filePath("mosquitto.conf"_s));
        if (!file.open(QIODevice::WriteOnly)) {
            qFatal("no file");
        }
        file.write("listener " + QByteArray::number(port) + " 127.0.0.1\n" + more);
        free.close();
        start();
    }
    ~SBroker() { stop(); }
    void start()
    {
        program.start("mosquitto"_s, {"-c"_s, folder.filePath("mosquitto.conf"_s)});
        (void)QTest::qWaitFor([this] {
            QTcpSocket socket;
            socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
            return socket.waitForConnected(100);
        });
    }
    void stop()
    {
        program.kill();
        program.waitForFinished();
    }

    QTemporaryDir folder;
    quint16 port = 0;
    QProcess program;
};

/// mosquitto_sub, with what it heard as "TOPIC PAYLOAD" lines.
struct SSubscriber {
    explicit SSubscriber(const SBroker& broker, const QString& topic = "site/#"_s)
    {
        QObject::connect(&program, &QProcess::readyRead, [this] { heard += program.readAll(); });
        program.start("mosquitto_sub"_s,
                      {"-h"_s, "127.0.0.1"_s, "-p"_s, QString::number(broker.port), "-t"_s, topic, "-F"_s, "%t %p"_s});
    }
    ~SSubscriber()
    {
        program.kill();
        program.waitForFinished();
    }
    bool hears(const QByteArray& text)
    {
        return QTest::qWaitFor([&] { return heard.contains(text); }, 10000);
    }

    QProcess program;
    QByteArray heard;
};

void publish(const SBroker& broker, const QString& topic, const QString& payload)
{
    QProcess program;
    program.start("mosquitto_pub"_s,
                  {"-h"_s, "127.0.0.1"_s, "-p"_s, QString::number(broker.port), "-t"_s, topic, "-m"_s, payload});
    program.waitForFinished();
}
} // namespace

/// A bus at a broker of other people.
class CimshareMqttTest : public QObject
{
    Q_OBJECT

    static QString options(const SBroker& broker, const QString& more = {})
    {
        return "--mqtt 127.0.0.1:%1 --mqtt-topic site "_s.arg(broker.port) + more;
    }

private Q_SLOTS:
    void initTestCase() { REQUIRE_TOOL("mosquitto"); }
};

QTEST_GUILESS_MAIN(CimshareMqttTest)
#include "tst_cimshareMqtt.moc"
