// What a power cut in the middle of a save leaves: a process that saves the settings of three interfaces again and
// again is killed at a random moment, and another one looks at the store. Each interface must be wholly as one save
// left it, no save that had returned may be missing, and what else the host stored must be there.
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
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

using namespace vexmor::Bench;
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
    // What was found.
    int halves;
    int lost; ///< saves that had returned and are not in the store
    int hostKeyMissing;
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

[[noreturn]] void saveForEver(SProgress& progress)
{
    progress.started = true;
    for (int version = progress.saved[0] + 1; version < VERSIONS; ++version) {
        for (int number = 0; number < INTERFACES; ++number) {
            if (interfaceOf(number, version)->saveSettings(GROUP) == 0) {
                progress.saved[number] = version;
            }
        }
    }
    _exit(0);
}

/// The version of an interface in the store, or -1 when its values are not all of one version.
int storedVersion(int number)
{
    QSettings settings;
    settings.beginGroup(GROUP);
    settings.beginGroup(QStringLiteral("gateway %1").arg(number));
    const int version = settings.value(QStringLiteral("Port")).toInt();
    constexpr int KEYS = 19;
    const auto asSaved = interfaceOf(number, version);
    const auto loaded = interfaceOf(number, 1);
    const bool whole = settings.allKeys().size() == KEYS && loaded->loadSettings(GROUP) == 0 &&
                       loaded->commonInfo() == asSaved->commonInfo() && loaded->baudrate() == asSaved->baudrate();
    return whole ? version : -1;
}

/// Runs an action in a process of its own, whose Qt has seen nothing of the store yet.
template <typename Action>
void runInChild(Action&& action)
{
    const pid_t child = fork();
    if (child == 0) {
        action();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) {
        throw std::runtime_error("a process of this program failed");
    }
}

void look(SProgress& progress)
{
    progress.hostKeyMissing += QSettings().value(HOST_KEY).toString() == HOST_VALUE ? 0 : 1;
    for (int number = 0; number < INTERFACES; ++number) {
        const int version = storedVersion(number);
        progress.halves += version < 0 ? 1 : 0;
        progress.lost += version >= 0 && version < progress.saved[number] ? 1 : 0;
    }
}

void cut(SProgress& progress, int kills)
{
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
        runInChild([&] { look(progress); });
    }
}

bool run(int kills)
{
    const QTemporaryDir folder;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, folder.path());
    QCoreApplication::setOrganizationName(QStringLiteral("endurance"));
    QCoreApplication::setApplicationName(QStringLiteral("cut"));
    plugin(); // loaded before the first process is made
    void* const shared = mmap(nullptr, sizeof(SProgress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
        throw std::runtime_error("no memory to share");
    }
    auto& progress = *new (shared) SProgress{};
    runInChild([&] {
        QSettings().setValue(HOST_KEY, HOST_VALUE);
        for (int number = 0; number < INTERFACES; ++number) {
            interfaceOf(number, 1)->saveSettings(GROUP);
            progress.saved[number] = 1;
        }
    });
    cut(progress, kills);
    const QDir store(folder.filePath(QStringLiteral("endurance")));
    const int leftOver = store.entryList(QDir::Files | QDir::Hidden).size() - 1;
    printHead({"", "interfaces half old, half new", "saves lost that had returned", "other values of the host lost",
               "files left over"});
    printRow({text("%d kills in %d saves", kills, INTERFACES * progress.saved[0].load()),
              std::to_string(progress.halves), std::to_string(progress.lost), std::to_string(progress.hostKeyMissing),
              std::to_string(leftOver)});
    return progress.halves + progress.lost + progress.hostKeyMissing == 0;
}
} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    const int kills = argc > 1 ? std::max(std::atoi(argv[1]), 1) : 1000;
    return exitCodeOf("settingsCut", [&] { return run(kills); });
}
