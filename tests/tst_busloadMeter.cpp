#include "InterfaceT93/busloadMeter.h"
#include "testData.h"

using namespace vexmor::Cim;
using namespace vexmor::Test;

/// Bus load in percent from counted messages; from what a gateway measures: InterfaceT93Test.
class BusloadMeterTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void periods_data()
    {
        const auto row =
            columns<int, unsigned int, unsigned int, unsigned int>("messages", "period", "rate", "percent");
        // Messages of 8 data bytes have 110 bits. Before the period the load is 7 %.
        row("just below the next percent", 136, 1000, 500, 2);
        row("just at it", 137, 1000, 500, 3);
        row("more than the bus can carry", 100, 10, 10, 11000);
        row("a capacity that wraps to 0 changes nothing", 100, 1024, 0x400000, 7);
        row("a rate of 0 changes nothing", 100, 1000, 0, 7);
        row("a period of 0 changes nothing", 100, 0, 500, 7);
    }
    void periods()
    {
        CBusloadMeter meter;
        meter.takeGatewayValue(119, 125); // 119 * 74 / 125 / 10
        QCOMPARE(meter.percent(), 7U);
        for (int i = 0; i < cell<int>("messages"); ++i) {
            meter.countMessage(8);
        }
        meter.endPeriod(cell<unsigned int>("period"), cell<unsigned int>("rate"));
        QTEST(meter.percent(), "percent");
        meter.endPeriod(1000, 500); // what was counted is counted once
        QCOMPARE(meter.percent(), 0U);
    }
};

QTEST_APPLESS_MAIN(BusloadMeterTest)
#include "tst_busloadMeter.moc"
