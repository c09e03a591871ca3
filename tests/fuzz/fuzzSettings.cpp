// Any file may stand where the settings are: loading takes all of it or nothing, and what it took can be saved and
// loaded.
#include "InterfaceT93/configParamT93.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>

#include <cstdlib>

using namespace vexmor::Cim;

namespace
{
const QString GROUP = QStringLiteral("CanInterfaces");

struct SRecord {
    SRecord()
    {
        info.setPluginName(QStringLiteral("InterfaceT93Plugin"));
        info.setUniqueName(QStringLiteral("gw"));
    }
    QStringList fields() const
    {
        bool ok = false;
        return {info.description(),
                info.interfaceId(),
                info.firmwareVersion(),
                info.port(),
                info.type(),
                QString::number(int(info.isScanable()) + 2 * int(param.udpBindAnyIp()) + 4 * int(param.autoIpUpdate())),
                param.ipPortString(),
                param.localIpAddress().toString(),
                param.serviceTypeString(ok),
                param.hostname(),
                QString::number(param.busloadMeasureInterval()),
                QString::number(param.busloadPollTime()),
                QString::number(param.canBaudrate())};
    }
    CCommonInfo info;
    CConfigParamT93 param;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    static const QTemporaryDir dir(QStringLiteral("/dev/shm/fuzz-XXXXXX")); // in memory: a save waits for the disk
    static int inputs = 0;
    qputenv("XDG_CONFIG_HOME", QFileInfo(dir.path()).path().toLocal8Bit());
    QCoreApplication::setOrganizationName(QFileInfo(dir.path()).fileName());
    // A name for each input: Qt knows a file again by its size and the millisecond of its last change.
    QCoreApplication::setApplicationName(QString::number(++inputs));
    QFile store(QSettings().fileName());
    if (!store.open(QIODevice::WriteOnly)) {
        std::abort();
    }
    store.write("[CanInterfaces]\n");
    for (const QByteArray& line : QByteArray(reinterpret_cast<const char*>(bytes), int(count)).split('\n')) {
        store.write((line.startsWith('[') ? "" : "gw\\") + line + '\n'); // lines of the interface, and any others
    }
    store.close();

    SRecord loaded;
    if (loaded.param.loadSettings(GROUP, loaded.info) != 0) {
        if (loaded.fields() != SRecord().fields()) {
            std::abort();
        }
    } else {
        SRecord again;
        if (loaded.param.saveSettings(GROUP, loaded.info) != 0 || again.param.loadSettings(GROUP, again.info) != 0 ||
            again.fields() != loaded.fields()) {
            std::abort();
        }
    }
    store.remove();
    return 0;
}
