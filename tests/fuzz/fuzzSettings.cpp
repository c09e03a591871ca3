// Loads any file as settings. Loading must accept all settings or none, and saving must store the accepted ones again.
#include "InterfaceT93/configParamT93.h"
#include "fuzz/require.h"

#include <QtCore>

using namespace vexmor::Cim;

namespace
{
/// Saves a record, and returns its stored keys and values.
QVariantMap stored(CConfigParamT93& param, CCommonInfo& info, const QString& group)
{
    QVariantMap values;
    require(param.saveSettings(group, info) == 0);
    QSettings settings;
    settings.beginGroup(group + QStringLiteral("/gw"));
    for (const QString& key : settings.allKeys()) {
        values.insert(key, settings.value(key));
    }
    return values;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    static const QTemporaryDir dir(
        QStringLiteral("/dev/shm/fuzzSettings-XXXXXX")); // in memory: saving waits for the disk
    static int inputs = 0;
    qputenv("XDG_CONFIG_HOME", dir.path().toLocal8Bit());
    // A new name for each input: Qt recognises an unchanged file by its size and the millisecond of its last change.
    QCoreApplication::setOrganizationName(QStringLiteral("."));
    QCoreApplication::setApplicationName(QString::number(++inputs));
    QFile store(QSettings().fileName());
    require(store.open(QIODevice::WriteOnly));
    store.write("[CanInterfaces]\n");
    for (const QByteArray& line : QByteArray(reinterpret_cast<const char*>(bytes), int(count)).split('\n')) {
        store.write((line.startsWith('[') ? "" : "gw\\") + line + '\n'); // lines of the interface, or sections
    }
    store.close();
    CCommonInfo info;
    info.setPluginName(QStringLiteral("InterfaceT93Plugin"));
    info.setUniqueName(QStringLiteral("gw"));
    CConfigParamT93 param;
    const QVariantMap before = stored(param, info, QStringLiteral("A"));
    const int code = param.loadSettings(QStringLiteral("CanInterfaces"), info);
    const QVariantMap loaded = stored(param, info, QStringLiteral("B"));
    require(code == 0 || loaded == before);
    require(param.loadSettings(QStringLiteral("B"), info) == 0);
    require(stored(param, info, QStringLiteral("C")) == loaded);
    store.remove();
    return 0;
}
