// Tests the effect of a power cut during a save: a process that repeatedly saves the settings of three interfaces is
// killed at a random moment, then another process reads the store. Each interface must have exactly the settings of one
// save, no completed save may be missing, and all other settings of the host must exist. Fails at the first kill after
// which this is not the case.
//
// Then tests simultaneous saves: several processes save one interface each, like the programs of this project; some
// start a new process for each save. All saved settings must be in the file at the end.
//
// settingsCut [KILLS, 1000] [SAVES of each of several processes, 500]
#include "apps/host/interfaceStore.h"
#include "bench/measuring.h"
#include "bench/pluginInterface.h"
#include "bench/processes.h"

#include <QCoreApplication>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

using namespace vexmor::Bench;
using namespace vexmor::Cim;

namespace
{
constexpr int INTERFACES = 3;
constexpr int MAX_DELAY_US = 150000;
constexpr int MAX_PAUSE_US = 3000;
constexpr int VERSIONS = 60000; ///< A version is also a port.
constexpr int KEYS = 19;
constexpr int SAVERS = 6;
constexpr int SAVER_VERSIONS = 10000; ///< The versions of each begin at a multiple, so that all texts have one length.
const QString GROUP = QStringLiteral("CanInterfaces");
const QString HOST_KEY = QStringLiteral("Host/Window");
const QString HOST_VALUE = QStringLiteral("800x600");

/// For each interface the last version whose save returned; shared by the processes.
using Progress = std::atomic<int>[INTERFACES];

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

void save(Progress& saved, int lastVersion)
{
    for (int version = saved[0] + 1; version <= lastVersion; ++version) {
        for (int number = 0; number < INTERFACES; ++number) {
            if (interfaceOf(number, version)->saveSettings(GROUP) == 0) {
                saved[number] = version;
            }
        }
    }
}

void look(const Progress& saved)
{
    QSettings settings;
    bool ok = holds("the host's other values are kept", settings.value(HOST_KEY).toString() == HOST_VALUE);
    settings.beginGroup(GROUP);
    for (int number = 0; number < INTERFACES; ++number) {
        settings.beginGroup(QStringLiteral("gateway %1").arg(number));
        const int version = settings.value(QStringLiteral("Port")).toInt();
        const auto asSaved = interfaceOf(number, version);
        const auto loaded = interfaceOf(number, 1);
        ok &= holds("an interface is wholly as one save left it",
                    settings.allKeys().size() == KEYS && loaded->loadSettings(GROUP) == 0 &&
                        loaded->commonInfo() == asSaved->commonInfo() && loaded->baudrate() == asSaved->baudrate());
        ok &= holds("a save that had returned is kept", version >= saved[number]);
        settings.endGroup();
    }
    if (!ok) {
        throw std::runtime_error("the store is not as promised");
    }
}

void saveAsPrograms(int number, int version)
{
    const auto can = interfaceOf(number, version);
    vexmor::Apps::CInterfaceStore store;
    if (const auto failure = store.save(*can, can->commonInfo().uniqueName())) {
        throw std::runtime_error(failure->text.toStdString());
    }
    QFile file(QSettings().fileName());
    check(file.open(QFile::ReadOnly), "open");
    const QByteArray line = "Description=" + QByteArray::number(version) + '\n';
    if (!holds("what was saved is in the file", file.readAll().contains(line))) {
        throw std::runtime_error("a save was lost");
    }
}

void saveTogether(int saves)
{
    std::vector<std::unique_ptr<CChildProcess>> savers;
    for (int number = 0; number < SAVERS; ++number) {
        savers.push_back(std::make_unique<CChildProcess>(0, [number, saves] {
            std::mt19937 random(number);
            for (int save = 0; save < saves; ++save) {
                const auto saveOne = [&] { saveAsPrograms(number, (number + 1) * SAVER_VERSIONS + save); };
                number % 2 == 0 ? saveOne() : CChildProcess(0, saveOne).finish();
                usleep(random() % MAX_PAUSE_US);
            }
        }));
    }
    for (const auto& saver : savers) {
        saver->finish();
    }
    std::printf("%d processes, %d saves each at the same time: none lost\n", SAVERS, saves);
}
} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    const int kills = argc > 1 ? std::atoi(argv[1]) : 1000;
    const int saves = argc > 2 ? std::atoi(argv[2]) : 500;
    const QTemporaryDir folder;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, folder.path());
    QCoreApplication::setOrganizationName(QStringLiteral("endurance"));
    QCoreApplication::setApplicationName(QStringLiteral("cut"));
    plugin(); // loaded before the first process is started
    void* const shared = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    check(shared != MAP_FAILED, "mmap");
    auto& saved = *static_cast<Progress*>(shared);
    // Only processes of their own look at the store, so that their Qt has seen nothing of it before.
    CChildProcess(0, [&] {
        QSettings().setValue(HOST_KEY, HOST_VALUE);
        save(saved, 1);
    }).finish();
    std::mt19937 random(std::random_device{}());
    for (int kill = 0; kill < kills; ++kill) {
        {
            const CChildProcess saver(0, [&] { save(saved, VERSIONS); });
            usleep(random() % MAX_DELAY_US);
        } // killed
        CChildProcess(0, [&] { look(saved); }).finish();
    }
    std::printf("%d kills in %d saves: each interface whole, no save lost\n", kills, INTERFACES * saved[0]);
    saveTogether(saves);
    return 0;
}
