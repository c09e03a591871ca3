#include "InterfaceT93/t93DeviceDetection.h"

#include "InterfaceT93/detectionDatagrams.h"
#include "vxCore/logging.h"

#include <QNetworkProxy>

#include <algorithm>
#include <chrono>

namespace vexmor::Cim
{
namespace
{
constexpr char LOG_SOURCE[] = "lib/src/vxRemLib/cim/InterfaceT93/t93DeviceDetection";

constexpr int PAUSE_AFTER_BROADCAST_MS = 100;
constexpr int PAUSE_AFTER_UNICAST_MS = 40;
/// Maximum number of datagrams read in one turn of the event loop, so that a flood does not delay the end of the scan.
constexpr int MAX_DATAGRAMS_PER_TURN = 256;
} // namespace

// ---- CScanStop ----

void CScanStop::request()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_requested = true;
    m_requestedCondition.notify_all();
}

bool CScanStop::isRequested() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_requested;
}

bool CScanStop::pause(int milliseconds) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    return !m_requestedCondition.wait_until(lock, end, [this] { return m_requested; });
}

// ---- CT93DeviceDetection ----

CT93DeviceDetection::CT93DeviceDetection(const QList<QHostAddress>& scanAddresses, bool skipLoopback, quint16 scanPort,
                                         const CScanStop& stop)
    : m_stop(stop), m_skipLoopback(skipLoopback), m_scanPort(scanPort), m_scanAddresses(scanAddresses)
{
}

CT93DeviceDetection::~CT93DeviceDetection()
{
    deleteSockets();
}

void CT93DeviceDetection::collectNetworkInterfaces()
{
    if (m_stop.isRequested()) {
        return;
    }
    m_allInterfaces = QNetworkInterface::allInterfaces();
    m_interfaces.clear();
    for (const QNetworkInterface& networkInterface : std::as_const(m_allInterfaces)) {
        if (!m_skipLoopback || !networkInterface.flags().testFlag(QNetworkInterface::IsLoopBack)) {
            m_interfaces.append(networkInterface);
        }
    }
}

void CT93DeviceDetection::bindSockets()
{
    for (const QNetworkInterface& networkInterface : std::as_const(m_interfaces)) {
        for (const QNetworkAddressEntry& entry : networkInterface.addressEntries()) {
            if (m_stop.isRequested()) {
                return;
            }
            auto socket = std::make_unique<QUdpSocket>();
            socket->setProxy(QNetworkProxy::NoProxy); // gateways are not reached through a web proxy
            if (!socket->bind(entry.ip(), 0, QAbstractSocket::DefaultForPlatform)) {
                continue;
            }
            connect(socket.get(), &QIODevice::readyRead, this, &CT93DeviceDetection::readPendingDatagrams);
            m_scanSockets.push_back({std::move(socket), entry});
        }
    }
}

void CT93DeviceDetection::sendIdentRequests()
{
    m_receivedDatagrams.clear();
    m_kept = {};
    m_keptBySender.clear();
    m_identRequest = ddtIdentRequest();
    m_sequence = 0;
    bool previousWasSent = false;
    for (const CScanSocket& scanSocket : m_scanSockets) {
        if (previousWasSent ? !m_stop.pause(PAUSE_AFTER_BROADCAST_MS) : m_stop.isRequested()) {
            return;
        }
        previousWasSent = broadcastIdentRequest(scanSocket);
        if (!sendToScanAddresses(*scanSocket.socket)) {
            return;
        }
    }
}

bool CT93DeviceDetection::broadcastIdentRequest(const CScanSocket& scanSocket)
{
    const QHostAddress broadcast(QHostAddress::Broadcast);
    const auto text = [](const QHostAddress& address) { return address.toString().toLocal8Bit(); };
    {
        const CScanStop::CLogging logging(m_stop);
        VX_LOG(20, LOG_SOURCE, "broadcast DDT message for T93 device scan:");
        VX_LOG(20, LOG_SOURCE, "IP Address:               %s", text(scanSocket.addressEntry.ip()).constData());
        VX_LOG(20, LOG_SOURCE, "Subnet-Broadcast Address: %s", text(scanSocket.addressEntry.broadcast()).constData());
        VX_LOG(20, LOG_SOURCE, "Using Broadcast Address:  %s", text(broadcast).constData());
    }
    if (m_stop.isRequested()) {
        return false;
    }

    const qint64 sent = scanSocket.socket->writeDatagram(m_identRequest, broadcast, m_scanPort);
    if (sent != m_identRequest.size()) {
        return false;
    }
    setDdtSequence(m_identRequest, ++m_sequence);
    return true;
}

/// Sends the request to each scan address. Returns false when a stop was requested.
bool CT93DeviceDetection::sendToScanAddresses(QUdpSocket& socket)
{
    for (const QHostAddress& address : m_scanAddresses) {
        const bool wasSent = socket.writeDatagram(m_identRequest, address, m_scanPort) == m_identRequest.size();
        if (wasSent ? !m_stop.pause(PAUSE_AFTER_UNICAST_MS) : m_stop.isRequested()) {
            return false;
        }
    }
    return true;
}

void CT93DeviceDetection::readPendingDatagrams()
{
    auto* const socket = qobject_cast<QUdpSocket*>(sender());
    if (socket == nullptr) {
        return;
    }
    int taken = 0;
    do { // the first read is always made: without one, Qt would signal no further datagram
        const qint64 waiting = socket->pendingDatagramSize(); // -1: no datagram, but one may arrive before the read
        const qint64 size = waiting < 0 ? DDT_MAX_SIZE : std::clamp<qint64>(waiting, 1, DDT_MAX_SIZE);
        QByteArray data(static_cast<int>(size), Qt::Uninitialized);
        QHostAddress sender;
        data.truncate(static_cast<int>(std::max<qint64>(socket->readDatagram(data.data(), data.size(), &sender), 0)));
        if (isDdtKind(data, DDT_IDENT_REPLY)) {
            keepDatagram(sender, socket->localAddress(), data);
        }
    } while (++taken < MAX_DATAGRAMS_PER_TURN && socket->hasPendingDatagrams());
}

void CT93DeviceDetection::keepDatagram(const QHostAddress& sender, const QHostAddress& localAddress,
                                       const QByteArray& data)
{
    if (!m_kept.hasRoom(data.size(), LIMIT)) {
        return;
    }
    SKept& ofSender = m_keptBySender[sender];
    if (ofSender.hasRoom(data.size(), SENDER_LIMIT)) {
        m_kept.add(data.size());
        ofSender.add(data.size());
        m_receivedDatagrams.push_back({localAddress, data});
    }
}

void CT93DeviceDetection::evaluateDatagrams()
{
    m_detectedInterfaces.clear();
    for (const CReceivedDatagram& datagram : m_receivedDatagrams) {
        for (const SDdtEntry& entry : usableDdtEntries(datagram.data)) {
            if (m_stop.isRequested()) {
                return;
            }
            CConfigParamT93 param = configParamOfDdtEntry(entry);
            param.setLocalIpAddress(datagram.localAddress);
            addDetectedInterface(param);
        }
    }
}

void CT93DeviceDetection::addDetectedInterface(const CConfigParamT93& param)
{
    CCommonInfo info;
    info.setDescription(tr("T93 Ethernet Interface"));
    info.setPluginName(QStringLiteral("InterfaceT93Plugin"));
    info.setConnectionState(CCommonInfo::eConnected);
    info.setUniqueName(buildUniqueName(param));
    m_detectedInterfaces.append({info, param});

    const CScanStop::CLogging logging(m_stop);
    VX_LOG(20, LOG_SOURCE, "------- T93 interface found ---------------------------");
    VX_LOG(20, LOG_SOURCE, "hostname '%s' found.", param.hostname().toLocal8Bit().constData());
    VX_LOG(20, LOG_SOURCE, "MAC address %s found.", param.macAddressString(QLatin1Char(':')).toLocal8Bit().constData());
    VX_LOG(20, LOG_SOURCE, "protocol Type: %d (0=TCP, 1=UDP)", static_cast<int>(param.protocolType()));
    VX_LOG(20, LOG_SOURCE, "IP address: %s", param.ipAddress().toString().toLocal8Bit().constData());
    VX_LOG(20, LOG_SOURCE, "IP port %d", static_cast<int>(param.port()));
    VX_LOG(20, LOG_SOURCE, "Service: %d (0=Client, 1=Server)", static_cast<int>(param.serviceType()));
    VX_LOG(20, LOG_SOURCE, "local IP address (PC): %s", param.localIpAddress().toString().toLocal8Bit().constData());
    VX_LOG(20, LOG_SOURCE, "uniqueName: '%s'", info.uniqueName().toLocal8Bit().constData());
}

QString CT93DeviceDetection::buildUniqueName(const CConfigParamT93& param)
{
    QString protocol;
    QString service;
    CCommonInfo::protocolEnumToStr(param.protocolType(), protocol);
    CConfigParamT93::serviceEnumToStr(param.serviceType(), service);
    // Made without arg(), which would replace a %1 in the host name.
    return param.hostname() + QLatin1Char('-') + protocol + QLatin1Char('-') + service + QLatin1Char('-') +
           QString::number(param.port());
}

void CT93DeviceDetection::closeSockets()
{
    for (const CScanSocket& scanSocket : m_scanSockets) {
        scanSocket.socket->close();
        scanSocket.socket->disconnect();
    }
}

void CT93DeviceDetection::deleteSockets()
{
    m_scanSockets.clear();
}

// ---- CT93DeviceDetectionThread ----

CT93DeviceDetectionThread::CT93DeviceDetectionThread(const QList<QHostAddress>& scanAddresses, bool skipLoopback,
                                                     int waitTimeMs, quint16 scanPort, QObject* parent)
    : QThread(parent),
      m_scanAddresses(scanAddresses),
      m_skipLoopback(skipLoopback),
      m_waitTimeMs(waitTimeMs),
      m_scanPort(scanPort)
{
}

CT93DeviceDetectionThread::~CT93DeviceDetectionThread()
{
    // run() has ended. The lock shows this to a thread sanitizer, which does not see the synchronisation in QThread.
    const std::lock_guard<std::mutex> lock(m_resultMutex);
}

void CT93DeviceDetectionThread::run()
{
    m_detection = std::make_unique<CT93DeviceDetection>(m_scanAddresses, m_skipLoopback, m_scanPort, m_stop);
    m_detection->collectNetworkInterfaces();
    m_detection->bindSockets();
    m_detection->sendIdentRequests();
    if (!m_stop.isRequested()) {
        waitForReplies();
        m_detection->closeSockets();
        m_detection->evaluateDatagrams();
    }
    const QList<CDetectedInterface> detected = m_detection->detectedInterfaces();
    m_detection.reset();
    const std::lock_guard<std::mutex> lock(m_resultMutex);
    if (!m_stop.isRequested()) {
        m_detectedInterfaces = detected;
    }
}

void CT93DeviceDetectionThread::waitForReplies()
{
    m_waitTimer = std::make_unique<QTimer>();
    m_waitTimer->setSingleShot(true);
    m_waitTimer->setTimerType(Qt::PreciseTimer);
    connect(m_waitTimer.get(), &QTimer::timeout, this, &CT93DeviceDetectionThread::timeoutWaitForDatagrams);
    m_waitTimer->start(m_waitTimeMs);
    exec(); // returns at once after stop()
    m_waitTimer.reset();
}

void CT93DeviceDetectionThread::timeoutWaitForDatagrams()
{
    quit();
}

QList<CDetectedInterface> CT93DeviceDetectionThread::detectedInterfaces() const
{
    const std::lock_guard<std::mutex> lock(m_resultMutex);
    return m_detectedInterfaces;
}

void CT93DeviceDetectionThread::stop()
{
    m_stop.request();
    exit(0);
}

} // namespace vexmor::Cim
