// Ends a scan early, in the way and at the moment that the command line names. The exit code is 0 when all checks pass.
// Not linked to the plugin, so that unloading the plugin really removes its code. Run by inNamespace.

#include "cim/canInterfacePlugin.h"
#include "vxCore/logging.h"

#include <QtCore>

#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>

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
constexpr int DELAY_MS = 1500;
// Number of programs, each of which ends at a different moment at the beginning of a scan.
constexpr int BEGINNINGS = 30;
constexpr int BEGINNING_STEP_US = 30;
constexpr int ENDED_AS_TOLD = 7;

QPluginLoader* s_loader = nullptr;
QByteArray s_way;
int s_broadcastsLeft = 0; ///< Broadcasts that the scan sends before it must end.
std::atomic<bool> s_isThere{false};
std::atomic<bool> s_isDelayed{false};
QSemaphore s_goOn; ///< Released when the log handler may let the scan thread continue (way "hold").

void check(bool ok, const char* fact)
{
    if (!ok) {
        std::fprintf(stderr, "scanEnds: not true: %s\n", fact);
        std::_Exit(1);
    }
}

QStringList threads()
{
    return QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
}

void requireNoScanThread(int limitMs = 500)
{
    const QDeadlineTimer limit(limitMs);
    while (threads().size() > OWN_THREADS) { // the system may end a thread later than QThread reports
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

/// Stops the scan thread for a while, wherever it is, by letting it sleep in a signal handler.
void delayScanThread()
{
    std::signal(SIGUSR1, [](int) {
        s_isDelayed = true;
        ::usleep(DELAY_MS * 1000);
    });
    for (const QString& thread : threads()) {
        if (thread.toInt() != ::getpid()) {
            check(::syscall(SYS_tgkill, ::getpid(), thread.toInt(), SIGUSR1) == 0, "the scan thread takes a signal");
        }
    }
    while (!s_isDelayed) {
        QThread::msleep(1);
    }
}

void endScan() // the way "return" does nothing here: main returns while the scan runs
{
    QElapsedTimer clock;
    clock.start();
    if (s_way == "delayed") {
        delayScanThread();
    }
    if (s_way == "exit" || s_way == "delayed") {
        std::exit(0);
    } else if (s_way == "delete") {
        delete s_loader->instance();
    } else if (s_way == "unload" || s_way == "hold") {
        check(s_loader->unload(), "the library lets itself be unloaded");
        QFile maps(QStringLiteral("/proc/self/maps"));
        check(maps.open(QIODevice::ReadOnly), "the list of libraries can be read");
        check(maps.readAll().contains("libInterfaceT93") == (s_way == "hold"),
              "its code stays exactly while the scan needs it");
    }
    check(clock.elapsed() < 1000, "the scan ends at once");
    if (s_way == "hold") {
        check(clock.elapsed() >= 100, "the scan thread was held up");
        s_goOn.release();
        requireNoScanThread(END_LIMIT_MS);
    }
}

void onLogLine(int, const char*, int, const char* format, ...)
{
    if (qstrncmp(format, "broadcast", 9) != 0 || --s_broadcastsLeft != 0) {
        return;
    }
    s_isThere = true;
    if (s_way == "hold") {
        s_goOn.acquire();
    }
}

int run(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    check(argc == 3, "two arguments");
    s_way = argv[1];
    const QByteArray moment = argv[2];
    if (moment == "beginning") {
        // Each program ends at another time after the start of its scan.
        for (int i = 0; i < BEGINNINGS; ++i) {
            const QStringList arguments{QStringLiteral("exit"), QString::number(i * BEGINNING_STEP_US)};
            check(QProcess::execute(app.applicationFilePath(), arguments) == ENDED_AS_TOLD,
                  "a program that ends while a scan begins");
        }
        return 0;
    }
    const bool whileSending = moment == "sending";
    QPluginLoader loader(QStringLiteral(CIM_PLUGIN_FILE));
    loader.setLoadHints({}); // by default, Qt does not unmap an unloaded plugin
    s_loader = &loader;
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
        std::exit(ENDED_AS_TOLD);
    }
    const QDeadlineTimer limit(END_LIMIT_MS);
    while (!s_isThere) {
        check(!limit.hasExpired(), "the scan gets so far");
        QCoreApplication::processEvents();
        QThread::msleep(1);
    }
    endScan();
    return 0;
}
} // namespace

int main(int argc, char** argv)
{
    const int code = run(argc, argv);
    // The application object, which the scan needs, does not exist any more.
    requireNoScanThread();
    return code;
}
