// Ends a scan before its time, in the way and at the moment that the command line names; exit code 0 when that went
// well. Not linked to the plugin, whose code therefore really goes when it is unloaded. Run by inNamespace.

#include "cim/canInterfacePlugin.h"
#include "vxCore/logging.h"

#include <QtCore>

#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>

using namespace vexmor;

namespace
{
constexpr int SOCKETS = 4; // addresses in the namespace
#if defined(__SANITIZE_THREAD__)
constexpr int OWN_THREADS = 2; // the sanitizer has one
#else
constexpr int OWN_THREADS = 1;
#endif
constexpr int END_LIMIT_MS = 5000; // a scan that is not cut short takes longer
constexpr int DELAY_MS = 1500;
constexpr int BEGINNINGS = 30; // programs that end at another moment of the scan's beginning each
constexpr int BEGINNING_STEP_US = 30;
constexpr int ENDED_AS_TOLD = 7;

QPluginLoader* s_loader = nullptr;
QByteArray s_way;
int s_broadcastsLeft = 0; ///< until the scan is where it is to end
std::atomic<bool> s_isThere{false};
std::atomic<bool> s_isDelayed{false};
QSemaphore s_goOn; ///< until then the log handler holds the scan thread up, if that is the way

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
    while (threads().size() > OWN_THREADS) { // QThread may be done with it, and the system not yet
        check(!limit.hasExpired(), "no thread outlives what it uses");
        if (QCoreApplication::instance() != nullptr) {
            QCoreApplication::processEvents();
        }
    }
}

/// Made before the plugin is loaded, and so destroyed after whatever the plugin has.
const struct SEndOfProgram {
    ~SEndOfProgram() { requireNoScanThread(); }
} s_endOfProgram;

/// The scan thread gets no processor for a while, wherever it is: it sleeps in the handler of a signal.
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

void endScan() // by returning here, "return" leaves main with the scan running
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
        for (int i = 0; i < BEGINNINGS; ++i) { // each in a program of its own: how long after the start of the scan
            const QStringList arguments{QStringLiteral("exit"), QString::number(i * BEGINNING_STEP_US)};
            check(QProcess::execute(app.applicationFilePath(), arguments) == ENDED_AS_TOLD,
                  "a program that ends while a scan begins");
        }
        return 0;
    }
    const bool whileSending = moment == "sending";
    QPluginLoader loader(QStringLiteral(CIM_PLUGIN_FILE));
    loader.setLoadHints({}); // by default Qt unloads a plugin without unmapping it
    s_loader = &loader;
    auto* const plugin = qobject_cast<Cim::CCanInterfacePlugin*>(loader.instance());
    check(plugin != nullptr, "the plugin loads");
    for (int i = 1; whileSending && i <= 100; ++i) { // 4 s of pauses before the second broadcast
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
    requireNoScanThread(); // the application object is gone, which the scan needs
    return code;
}
