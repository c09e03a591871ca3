#include "InterfaceT93/interfaceT93Plugin.h"

#include "InterfaceT93/detectionDatagrams.h"
#include "InterfaceT93/interfaceT93.h"
#include "InterfaceT93/nativeCalls.h"
#include "InterfaceT93/t93DeviceDetection.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QMetaMethod>
#include <QNetworkInterface>
#include <QNetworkProxy>
#include <QThread>
#include <QUdpSocket>

namespace vexmor::Cim
{
namespace
{
constexpr bool SKIP_LOOPBACK = true;
constexpr int WAIT_FOR_REPLIES_MS = 4000;
constexpr unsigned long CANCEL_LIMIT_MS = 100;
// Limits of the wait for the scan thread at the end of the program, which destroys objects that the thread uses.
constexpr int END_LIMIT_MS = 5000;         // the thread ends much sooner, unless the computer is busy
constexpr int END_LIMIT_LOGGING_MS = 1000; // while the thread is in a log handler, which may wait for the main thread

CInterfaceT93Plugin* s_scanning = nullptr; ///< The object whose scan is running.

CCommonInfo describe(const CDetectedInterface& detected, CCanInterfacePlugin& plugin)
{
    CCommonInfo info = detected.commonInfo;
    info.setPluginName(plugin.pluginName());
    info.setInterfaceId(detected.configParam.macAddressString(QLatin1Char(':')));
    info.setPort(detected.configParam.ipPortString());
    info.setType(plugin.interfaceType());
    info.setScanable(true);
    return info;
}
} // namespace

CInterfaceT93Plugin::CInterfaceT93Plugin()
{
    CInterfaceT93::retranslateErrorStrings();
    // The filter is only installed in the application's thread, because Qt accepts no filters from other threads.
    QCoreApplication* const application = QCoreApplication::instance();
    if (application != nullptr && application->thread() == thread()) {
        application->installEventFilter(this);
    }
}

CInterfaceT93Plugin::~CInterfaceT93Plugin()
{
    cancelScan(false);
}

bool CInterfaceT93Plugin::eventFilter(QObject* watched, QEvent* event)
{
    // The type is compared first, because this filter sees the events of every object.
    if (event->type() == QEvent::LanguageChange && watched == QCoreApplication::instance()) {
        CInterfaceT93::retranslateErrorStrings();
    }
    return false;
}

QString CInterfaceT93Plugin::pluginName()
{
    return QStringLiteral("InterfaceT93Plugin");
}

int CInterfaceT93Plugin::pluginId()
{
    return 1;
}

QString CInterfaceT93Plugin::interfaceType()
{
    return QStringLiteral("T93");
}

CCanInterface* CInterfaceT93Plugin::createInterface()
{
    return new CInterfaceT93;
}

bool CInterfaceT93Plugin::addScanAddress(const QString& address)
{
    QHostAddress host;
    if (!host.setAddress(address)) {
        return false;
    }
    if (!m_scanAddresses.contains(host)) {
        m_scanAddresses.append(host);
    }
    return true;
}

bool CInterfaceT93Plugin::removeScanAddress(const QString& address)
{
    QHostAddress host;
    return host.setAddress(address) && m_scanAddresses.removeOne(host);
}

QStringList CInterfaceT93Plugin::scanAddresses()
{
    QStringList addresses;
    for (const QHostAddress& host : std::as_const(m_scanAddresses)) {
        addresses.append(host.toString());
    }
    return addresses;
}

int CInterfaceT93Plugin::scanInterfaces()
{
    if (!m_scanMutex.tryLock()) {
        return -1;
    }
    s_scanning = this;
    cancelScanWhenProgramEnds();
    m_detectionThread = std::make_unique<CT93DeviceDetectionThread>(m_scanAddresses, SKIP_LOOPBACK, WAIT_FOR_REPLIES_MS,
                                                                    DDT_PORT, nullptr);
    connect(m_detectionThread.get(), &QThread::finished, this, &CInterfaceT93Plugin::deviceDetectionThreadFinished);
    m_detectionThread->start();
    if (!m_detectionThread->isRunning()) { // the system provided no thread
        setIdle();
        return -1;
    }
    return 0;
}

/// Arranges that the scan is cancelled when the application object ends, or when exit() destroys static objects, in
/// reverse order of their creation.
void CInterfaceT93Plugin::cancelScanWhenProgramEnds()
{
    qAddPostRoutine(&CInterfaceT93Plugin::cancelScanAtEndOfProgram);
    // Qt makes some static objects at their first use. They must exist before the guard, which is then destroyed first:
    // the scan thread uses them.
    QNetworkInterface::allInterfaces();
    QUdpSocket socket;
    socket.setProxy(QNetworkProxy::NoProxy);
    socket.bind(QHostAddress(QHostAddress::LocalHost));
    static const struct SAtExit {
        ~SAtExit() { cancelScanAtEndOfProgram(); }
    } atExit;
}

void CInterfaceT93Plugin::deviceDetectionThreadFinished()
{
    if (!m_detectionThread || !m_detectionThread->isFinished()) { // the caller was not the thread's signal
        return;
    }
    QList<CCanInterface*> interfaceList;
    for (const CDetectedInterface& detected : m_detectionThread->detectedInterfaces()) {
        auto found = std::make_unique<CInterfaceT93>();
        found->setCommonInfo(describe(detected, *this));
        found->setConfigParam(detected.configParam);
        interfaceList.append(found.release());
    }
    setIdle();
    if (isSignalConnected(QMetaMethod::fromSignal(&CInterfaceT93Plugin::interfaceScanFinished))) {
        Q_EMIT interfaceScanFinished(pluginId(), interfaceList); // a slot may delete this object
    } else {
        qDeleteAll(interfaceList); // without a receiver, the interfaces have no owner
    }
}

void CInterfaceT93Plugin::cancelScan(bool atEndOfProgram)
{
    if (!m_detectionThread) {
        return;
    }
    m_detectionThread->disconnect(this);
    m_detectionThread->stop();
    const bool hasEnded = atEndOfProgram ? waitAtEndOfProgram() : m_detectionThread->wait(CANCEL_LIMIT_MS);
    if (!hasEnded) {
        keepLibraryLoaded();
        QThread* const thread = m_detectionThread.release();
        connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    }
    setIdle();
}

bool CInterfaceT93Plugin::waitAtEndOfProgram()
{
    QElapsedTimer clock;
    clock.start();
    const auto limit = [this] { return m_detectionThread->isLogging() ? END_LIMIT_LOGGING_MS : END_LIMIT_MS; };
    while (clock.elapsed() < limit()) {
        if (m_detectionThread->wait(CANCEL_LIMIT_MS)) {
            return true;
        }
    }
    return false;
}

void CInterfaceT93Plugin::setIdle()
{
    m_detectionThread.reset();
    if (s_scanning == this) {
        s_scanning = nullptr;
        qRemovePostRoutine(&CInterfaceT93Plugin::cancelScanAtEndOfProgram);
    }
    m_scanMutex.unlock();
}

void CInterfaceT93Plugin::cancelScanAtEndOfProgram()
{
    if (s_scanning != nullptr) {
        s_scanning->cancelScan(true);
    }
}

} // namespace vexmor::Cim

const char* canInterfaceLibIdent()
{
    return "vex CAN Interface Library for T93";
}
