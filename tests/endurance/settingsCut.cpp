// What a power cut in the middle of a save leaves: a process that saves the settings of three interfaces again and
// again is killed at a random moment, and another one looks at the store. Each interface must be wholly as one save
// left it, no save that had returned may be missing, and what else the host stored must be there.
//
//     settingsCut [KILLS, 1000] [--busy-host]       --busy-host: another thread of the host stores values of its own
//     meanwhile
#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"

#include <QCoreApplication>
#include <QDir>
#include <QPluginLoader>
#include <QSettings>
#include <QTemporaryDir>

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <memory>
#include <random>
#include <thread>
#include <vector>

using namespace vexmor::Cim;

namespace
{
constexpr int INTERFACES = 3;
constexpr int MAX_DELAY_US = 150000;
constexpr int VERSIONS = 60000; // a version is also a port
const QString GROUP = QStringLiteral("CanInterfaces");
const QString HOST_KEY = QStringLiteral("Host/Window");
const QString HOST_VALUE = QStringLiteral("800x600");

/// Shared by the processes.
struct SProgress {
    std::atomic<int> saved[INTERFACES]; ///< the last version whose save returned
    std::atomic<bool> started;
    int stored[INTERFACES]; ///< the version that the store holds; -1: a mixture
    bool hostKeyThere;
};

struct SResult {
    int halves = 0;
    int lost = 0; ///< saves that had returned and are not in the store
    int hostKeyMissing = 0;
};

std::unique_ptr<CCanInterface> makeInterface(CCanInterfacePlugin& plugin, int number, int version)
{
    std::unique_ptr<CCanInterface> can(plugin.createInterface());
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

[[noreturn]] void saveForEver(CCanInterfacePlugin& plugin, SProgress& progress, bool busyHost)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (busyHost) {
        std::thread([] {
            for (int value = 0;; ++value) {
                QSettings settings;
                settings.setValue(QStringLiteral("Host/Counter"), value);
                settings.sync();
            }
        }).detach();
    }
    progress.started = true;
    for (int version = progress.saved[0] + 1; version < VERSIONS; ++version) {
        for (int number = 0; number < INTERFACES; ++number) {
            if (makeInterface(plugin, number, version)->saveSettings(GROUP) == 0) {
                progress.saved[number] = version;
            }
        }
    }
    _exit(0);
}

/// The version of an interface in the store, or -1 when its values are not all of one version.
int storedVersion(CCanInterfacePlugin& plugin, int number)
{
    QSettings settings;
    settings.beginGroup(GROUP);
    settings.beginGroup(QStringLiteral("gateway %1").arg(number));
    const int version = settings.value(QStringLiteral("Port")).toInt();
    constexpr int KEYS = 19;
    const auto asSaved = makeInterface(plugin, number, version);
    const auto loaded = makeInterface(plugin, number, 1);
    const bool whole = settings.allKeys().size() == KEYS && loaded->loadSettings(GROUP) == 0 &&
                       loaded->commonInfo() == asSaved->commonInfo() && loaded->baudrate() == asSaved->baudrate();
    return whole ? version : -1;
}

/// Runs an action in a process of its own, whose Qt has seen nothing of the store yet.
template <typename Action>
pid_t inChild(Action&& action)
{
    const pid_t child = fork();
    if (child == 0) {
        action();
        _exit(0);
    }
    return child;
}

void look(CCanInterfacePlugin& plugin, SProgress& progress, SResult& result)
{
    waitpid(inChild([&] {
                for (int number = 0; number < INTERFACES; ++number) {
                    progress.stored[number] = storedVersion(plugin, number);
                }
                progress.hostKeyThere = QSettings().value(HOST_KEY).toString() == HOST_VALUE;
            }),
            nullptr, 0);
    result.hostKeyMissing += progress.hostKeyThere ? 0 : 1;
    for (int number = 0; number < INTERFACES; ++number) {
        result.halves += progress.stored[number] < 0 ? 1 : 0;
        result.lost += progress.stored[number] >= 0 && progress.stored[number] < progress.saved[number] ? 1 : 0;
    }
}

SResult cut(CCanInterfacePlugin& plugin, SProgress& progress, int kills, bool busyHost)
{
    SResult result;
    std::mt19937 random(std::random_device{}());
    for (int kill = 0; kill < kills; ++kill) {
        progress.started = false;
        const pid_t saver = inChild([&] { saveForEver(plugin, progress, busyHost); });
        while (!progress.started) {
            usleep(100);
        }
        usleep(random() % MAX_DELAY_US);
        ::kill(saver, SIGKILL);
        waitpid(saver, nullptr, 0);
        look(plugin, progress, result);
    }
    return result;
}
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    const int kills = arguments.isEmpty() || arguments.first().toInt() <= 0 ? 1000 : arguments.first().toInt();
    const bool busyHost = arguments.contains(QStringLiteral("--busy-host"));
    const QTemporaryDir store;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, store.path());
    QCoreApplication::setOrganizationName(QStringLiteral("bench"));
    QCoreApplication::setApplicationName(QStringLiteral("cut"));

    QPluginLoader loader(QStringLiteral(CIM_PLUGIN_FILE));
    auto* const plugin = qobject_cast<CCanInterfacePlugin*>(loader.instance());
    void* const shared = mmap(nullptr, sizeof(SProgress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (plugin == nullptr || shared == MAP_FAILED) {
        std::fprintf(stderr, "settingsCut: %s\n", qPrintable(loader.errorString()));
        return 1;
    }
    auto& progress = *new (shared) SProgress{};
    waitpid(inChild([&] {
                QSettings().setValue(HOST_KEY, HOST_VALUE);
                for (int number = 0; number < INTERFACES; ++number) {
                    makeInterface(*plugin, number, 1)->saveSettings(GROUP);
                    progress.saved[number] = 1;
                }
            }),
            nullptr, 0);
    const SResult result = cut(*plugin, progress, kills, busyHost);
    const int leftOver = QDir(store.filePath(QStringLiteral("bench"))).entryList(QDir::Files | QDir::Hidden).size() - 1;
    std::printf("| %d kills in %d saves%s | %d | %d | %d | %d |\n", kills, INTERFACES * progress.saved[0].load(),
                busyHost ? ", host storing in another thread" : "", result.halves, result.lost, result.hostKeyMissing,
                leftOver);
    return result.halves + result.lost + result.hostKeyMissing == 0 || busyHost ? 0 : 1;
}
