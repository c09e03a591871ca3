#include "InterfaceT93/detectionDatagrams.h"
#include "InterfaceT93/t93DeviceDetection.h"
#include "scanData.h"

using namespace vexmor::Cim;
using namespace vexmor::Test;

/// What gateways are asked and what their replies mean, byte by byte, without a socket.
class DetectionDatagramsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requestToTheByte()
    {
        QByteArray request = ddtIdentRequest();
        QCOMPARE(request.toHex(), requestBytes(0).toHex());
        setDdtSequence(request, 0x0102);
        QCOMPARE(request.toHex(), requestBytes(0x0102).toHex());
    }

    void replies_data()
    {
        const auto row = columns<QByteArray, QStringList>("reply", "found");
        const QString gw1 = "gw1-TCP-SERVER-30000"_s;
        const QByteArray server = entry(2, 0);
        row("one endpoint", reply(1, server), {gw1});
        row("no entry", reply(0, {}), {});
        row("the same entry twice", reply(2, server + server), {gw1});
        row("another address does not make another endpoint", reply(2, server + entry(2, 0, "gw2")), {gw1});
        row("two protocols", reply(2, server + entry(2, 1)), {gw1, "gw1-UDP-SERVER-30000"_s});
        row("TCP client", reply(1, entry(1, 0)), {});
        row("UDP client", reply(1, entry(1, 1, "gw1", 65535)), {"gw1-UDP-CLIENT-65535"_s});
        row("protocol 7", reply(1, entry(2, 7, "hall-gw")), {"hall-gw-Invalid-SERVER-30000"_s});
        row("protocols 2 and 255", reply(2, entry(2, 2) + entry(2, 255)), {});
        row("services 0 and 3, then a good one", reply(3, entry(0, 0) + entry(3, 0) + server), {gw1});
        row("255 entries announced, one and a half there", reply(255, server + entry(2, 1).left(63)), {gw1});
        row("fewer announced than there", reply(1, server + entry(2, 1)), {gw1});
        row("name without end", reply(1, entry(2, 0, QByteArray(28, 'n'))),
            {QString(28, QLatin1Char('n')) + "-TCP-SERVER-30000"_s});
        row("name in UTF-8", reply(1, entry(2, 0, "größe")), {"größe-TCP-SERVER-30000"_s});
        row("name that is no UTF-8", reply(1, entry(2, 0, "a\xff")), {"a\uFFFD-TCP-SERVER-30000"_s});
        row("name that looks like a place to fill in", reply(1, entry(2, 0, "%1%2")), {"%1%2-TCP-SERVER-30000"_s});
    }
    void replies()
    {
        QStringList found;
        for (const SDdtEntry& one : usableDdtEntries(cell<QByteArray>("reply"))) {
            const CConfigParamT93 param = configParamOfDdtEntry(one);
            found.append(CT93DeviceDetection::buildUniqueName(param));
            QCOMPARE(param.ipAddress().toString(), "192.168.1.70"_s);
            QCOMPARE(param.macAddressString(QLatin1Char(':')), "00:1a:2b:3c:4d:5e"_s);
            QCOMPARE(param.canBaudrate(), 100U);
        }
        QTEST(found, "found");
    }
};

QTEST_APPLESS_MAIN(DetectionDatagramsTest)
#include "tst_detectionDatagrams.moc"
