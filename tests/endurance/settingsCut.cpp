// What a power cut in the middle of a save leaves: a process that saves the settings of three interfaces again and
// again is killed at a random moment, and another one looks at the store. Each interface must be wholly as one save
// left it, no save that had returned may be missing, and what else the host stored must be there. Fails at the first
// kill after which that is not so.
//
// settingsCut [KILLS, 1000]
#include "bench/measuring.h"
#include "bench/pluginInterface.h"
#include "bench/processes.h"

#include <QCoreApplication>
#include <QDir>
#include <QSettings>
#include <QTemporaryDir>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <random>
#include <stdexcept>

using namespace vexmor::Bench;
using namespace vexmor::Cim;

namespace
{
constexpr int INTERFACES = 3;
constexpr int MAX_DELAY_US = 150000;
constexpr int VERSIONS = 60000; ///< A version is also a port.
constexpr int KEYS = 19;
const QString GROUP = QStringLiteral("CanInterfaces");
const QString HOST_KEY = QStringLiteral("Host/Window");
const QString HOST_VALUE = QStringLiteral("800x600");

/// Shared by the processes.
struct SProgress {
    std::atomic<int> saved[INTERFACES]; ///< The last version whose save returned.
    std::atomic<bool> started;
};

std::unique_ptr<CCanInterface> interfaceOf(int number, int version)
{
    std::unique_ptr<CCanInterface> can(plugin().createInterface());
    const QString text = QString::number(version);
    CCommonInfo info = can->commonInfo();
    info.setUniqueName(QStringLiteral("gateway %1").arg(number));
    info.setDescription(text);
    info.setInterfaceId(text);
    info.setFirmwareVersion(text);
    info.setPort(CCommonInfo::buildIpPortStr(QStringLiteral("10.0.0.1"), quint16(version), CCommonInfo::eProtocolTcp));
    can->setCommonInfo(info);
    can->setBaudrate(version % 2 == 0 ? 500 : 1000);
    return can;
}

void save(SProgress& progress, int version)
{
    for (int number = 0; number < INTERFACES; ++number) {
        if (interfaceOf(number, version)->saveSettings(GROUP) == 0) {
            progress.saved[number] = version;
        }
    }
}

void saveForEver(SProgress& progress)
{
    progress.started = true;
    for (int version = progress.saved[0] + 1; version < VERSIONS; ++version) {
        save(progress, version);
    }
}

void look(const SProgress& progress)
{
    QSettings settings;
    bool ok = holds("what else the host stored is there", settings.value(HOST_KEY).toString() == HOST_VALUE);
    settings.beginGroup(GROUP);
    for (int number = 0; number < INTERFACES; ++number) {
        settings.beginGroup(QStringLiteral("gateway %1").arg(number));
        const int version = settings.value(QStringLiteral("Port")).toInt();
        const auto asSaved = interfaceOf(number, version);
        const auto loaded = interfaceOf(number, 1);
        ok &= holds("an interface is wholly as one save left it",
                    settings.allKeys().size() == KEYS && loaded->loadSettings(GROUP) == 0 &&
                        loaded->commonInfo() == asSaved->commonInfo() && loaded->baudrate() == asSaved->baudrate());
        ok &= holds("a save that had returned is there", version >= progress.saved[number]);
        settings.endGroup();
    }
    if (!ok) {
        throw std::runtime_error("the store is not as promised");
    }
}
} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    const int kills = argc > 1 ? std::max(std::atoi(argv[1]), 1) : 1000;
    const QTemporaryDir folder;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, folder.path());
    QCoreApplication::setOrganizationName(QStringLiteral("endurance"));
    QCoreApplication::setApplicationName(QStringLiteral("cut"));
    plugin(); // loaded before the first process is made
    void* const shared = mmap(nullptr, sizeof(SProgress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    check(shared != MAP_FAILED, "mmap");
    auto& progress = *new (shared) SProgress{};
    // Only processes of their own look at the store, so that their Qt has seen nothing of it before.
    CChildProcess(0, [&] {
        QSettings().setValue(HOST_KEY, HOST_VALUE);
        save(progress, 1);
    }).finish();
    std::mt19937 random(std::random_device{}());
    for (int kill = 0; kill < kills; ++kill) {
        progress.started = false;
        {
            const CChildProcess saver(0, [&] { saveForEver(progress); });
            while (!progress.started) {
                usleep(100);
            }
            usleep(random() % MAX_DELAY_US);
        } // killed
        CChildProcess(0, [&] { look(progress); }).finish();
    }
    const QDir store(folder.filePath(QStringLiteral("endurance")));
    printHead({"", "files left over"});
    printRow({text("%d kills in %d saves", kills, INTERFACES * progress.saved[0].load()),
              std::to_string(store.entryList(QDir::Files | QDir::Hidden).size() - 1)});
    return 0;
}
