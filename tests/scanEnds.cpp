// Ends a scan early, in the way and at the moment that the command line names. The exit code is 0 when all checks pass.
// Not linked to the plugin, so that unloading the plugin really removes its code. Run by inNamespace.

#include "cim/canInterfacePlugin.h"
#include "vxCore/logging.h"

#include <QtCore>

#include <csignal>
#include <unistd.h>

using namespace vexmor;

namespace
{
constexpr int SOCKETS = 4; // the scan has one socket for each address in the namespace
#if defined(__SANITIZE_THREAD__)
constexpr int OWN_THREADS = 2; // the sanitizer has a thread of its own
#else
constexpr int OWN_THREADS = 1;
#endif
constexpr int END_LIMIT_MS = 5000; // a scan that is not ended early takes longer
constexpr int ENDED_AS_REQUESTED = 7;

QByteArray s_way;
int s_broadcastsLeft = 0; ///< Broadcasts that the scan sends before it must end.
std::atomic<bool> s_isUnderWay{false};
QSemaphore s_goOn; ///< Released when the log handler may let the scan thread continue (way "hold").

void check(bool ok, const char* fact)
{
    if (!ok) {
        std::fprintf(stderr, "scanEnds: not true: %s\n", fact);
        std::_Exit(1);
    }
}

void requireNoScanThread(int limitMs = 500)
{
    const QDeadlineTimer limit(limitMs);
    // The system may end a thread later than QThread reports. An entry of this folder is a thread, "." or "..".
    while (QDir(QStringLiteral("/proc/self/task")).entryList().size() > OWN_THREADS + 2) {
        check(!limit.hasExpired(), "no thread outlives what it uses");
        if (QCoreApplication::instance() != nullptr) {
            QCoreApplication::processEvents();
        }
    }
}

/// Created before the plugin is loaded, and therefore destroyed after all objects of the plugin.
const struct SEndOfProgram {
    ~SEndOfProgram() { requireNoScanThread(); }
} s_endOfProgram;

void endScan(QPluginLoader& loader) // the way "return" does nothing here: main returns while the scan runs
{
    const QDeadlineTimer limit(1000);
    if (s_way == "delayed") { // the scan thread, wherever it is: it alone takes the signal, whose handler sleeps
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGUSR1);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        std::signal(SIGUSR1, [](int) { ::usleep(1500 * 1000); });
        ::kill(::getpid(), SIGUSR1);
    }
    if (s_way == "exit" || s_way == "delayed") {
        std::exit(0);
    } else if (s_way == "delete") {
        delete loader.instance();
    } else if (s_way == "unload" || s_way == "hold") {
        check(loader.unload(), "the library lets itself be unloaded");
        QFile maps(QStringLiteral("/proc/self/maps"));
        check(maps.open(QIODevice::ReadOnly), "the list of libraries can be read");
        check(maps.readAll().contains("libInterfaceT93") == (s_way == "hold"), "its code stays while the scan runs");
    }
    check(!limit.hasExpired(), "the scan ends at once");
    if (s_way == "hold") {
        s_goOn.release();
        requireNoScanThread(END_LIMIT_MS);
    }
}

void onLogLine(int, const char*, int, const char* format, ...)
{
    if (qstrncmp(format, "broadcast", 9) == 0 && --s_broadcastsLeft == 0) {
        s_isUnderWay = true;
        s_goOn.acquire(s_way == "hold" ? 1 : 0);
    }
}

/// Each of several programs ends at another time after the start of its scan.
void endAtTheBeginning()
{
    for (int microseconds = 0; microseconds < 900; microseconds += 30) {
        const QStringList arguments{QStringLiteral("exit"), QString::number(microseconds)};
        check(QProcess::execute(QCoreApplication::applicationFilePath(), arguments) == ENDED_AS_REQUESTED,
              "a program that ends while a scan begins");
    }
}

void run(const QByteArray& moment)
{
    const bool whileSending = moment == "sending";
    QPluginLoader loader(QStringLiteral(CIM_PLUGIN_FILE));
    loader.setLoadHints({}); // by default, Qt does not unmap an unloaded plugin
    auto* const plugin = qobject_cast<Cim::CCanInterfacePlugin*>(loader.instance());
    check(plugin != nullptr, "the plugin loads");
    for (int i = 1; whileSending && i <= 100; ++i) { // these addresses cause 4 s of pauses before the second broadcast
        plugin->addScanAddress(QStringLiteral("10.9.0.%1").arg(i));
    }
    s_broadcastsLeft = whileSending ? 1 : SOCKETS;
    CoreLib::Logging::setVxLoggingLevel(20);
    CoreLib::Logging::setVxLoggingHandler(onLogLine);
    check(plugin->scanInterfaces() == 0, "the scan starts");
    if (std::isdigit(moment[0])) {
        QThread::usleep(moment.toULong());
        std::exit(ENDED_AS_REQUESTED);
    }
    for (const QDeadlineTimer limit(END_LIMIT_MS); !s_isUnderWay; QThread::msleep(1)) {
        check(!limit.hasExpired(), "the scan gets so far");
        QCoreApplication::processEvents();
    }
    endScan(loader);
}
} // namespace

int main(int argc, char** argv)
{
    {
        QCoreApplication app(argc, argv);
        s_way = argv[1];
        qstrcmp(argv[2], "beginning") == 0 ? endAtTheBeginning() : run(argv[2]);
    }
    // The application object, which the scan needs, does not exist any more.
    requireNoScanThread();
    return 0;
}
