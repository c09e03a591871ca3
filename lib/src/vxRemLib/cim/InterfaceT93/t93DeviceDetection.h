#pragma once

#include "InterfaceT93/configParamT93.h"
#include "cim/commonInfoInterface.h"

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QNetworkInterface>
#include <QObject>
#include <QThread>
#include <QTimer>
#include <QUdpSocket>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace vexmor::Cim
{

/// One endpoint of a gateway that a scan found: description and parameters for its interface. A value.
struct CDetectedInterface {
    CCommonInfo commonInfo;
    CConfigParamT93 configParam;
};

/// A socket bound to one address of this computer; the requests of a scan leave through all of them.
struct CScanSocket {
    std::unique_ptr<QUdpSocket> socket;
    QNetworkAddressEntry addressEntry; ///< the address it is bound to
};

/// A datagram that may be a gateway's reply.
struct CReceivedDatagram {
    QHostAddress localAddress; ///< of the socket that received it
    QByteArray data;
};

/// The request that a scan end early, and the reason why it may not end at once. Any thread may use it.
class CScanStop
{
public:
    /// Exists in the scan thread while it writes log lines.
    class CLogging
    {
    public:
        explicit CLogging(const CScanStop& stop) : m_isLogging(stop.m_isLogging) { m_isLogging = true; }
        ~CLogging() { m_isLogging = false; }
        CLogging(const CLogging&) = delete;
        CLogging& operator=(const CLogging&) = delete;

    private:
        std::atomic<bool>& m_isLogging;
    };

    void request();
    bool isRequested() const;
    /// Pauses the calling thread; a request ends the pause. False when a stop was requested, now or before.
    bool pause(int milliseconds) const;
    /// The host's log handler has the scan thread, and may hold it up for as long as it likes.
    bool isLogging() const { return m_isLogging; }

private:
    mutable std::atomic<bool> m_isLogging{false};
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_requestedCondition;
    bool m_requested = false;
};

/// The work of one scan: asks on every address of this computer, collects what is answered, and evaluates it. All of it
/// is called in the scan thread. Failures (an address that cannot be bound, a request that cannot be sent) are silent
/// and only make the result shorter.
///
/// What strangers send is bounded: the first replies of a scan are kept, at most LIMIT in all and at most SENDER_LIMIT
/// of one sender, so that a flood does not hide the gateways. Bytes behind the longest possible reply are not read.
class CT93DeviceDetection : public QObject
{
    Q_OBJECT

public:
    /// Replies that were kept, or may be.
    struct SKept {
        int datagrams = 0;
        qint64 bytes = 0;

        bool hasRoom(qint64 size, const SKept& limit) const
        {
            return datagrams < limit.datagrams && bytes + size <= limit.bytes;
        }
        void add(qint64 size)
        {
            ++datagrams;
            bytes += size;
        }
    };
    static constexpr SKept LIMIT{4096, 1'048'576};
    static constexpr SKept SENDER_LIMIT{512, 131'072};

    /// `scanAddresses` are asked directly, besides the broadcast; `scanPort` is where gateways listen. `stop` must
    /// outlive the object.
    CT93DeviceDetection(const QList<QHostAddress>& scanAddresses, bool skipLoopback, quint16 scanPort,
                        const CScanStop& stop);
    ~CT93DeviceDetection() override;

    // The steps of a scan, in this order. Each ends early once a stop is requested.
    void collectNetworkInterfaces();
    void bindSockets();
    /// Turns the received datagrams into `detectedInterfaces`, in the order of arrival.
    void evaluateDatagrams();
    /// Receives nothing any more; what is received stays.
    void closeSockets();
    void deleteSockets();
    const QList<CDetectedInterface>& detectedInterfaces() const { return m_detectedInterfaces; }

    /// Host name, protocol, service and port, joined like hall-gw-UDP-SERVER-30000.
    static QString buildUniqueName(const CConfigParamT93& param);

public Q_SLOTS:
    /// Sends the ident request once from every socket to everybody, and to each scan address; with 100 ms between the
    /// broadcasts and 40 ms after each of the others, so that the replies do not come all at once.
    void sendIdentRequests();
    void readPendingDatagrams();

private:
    bool broadcastIdentRequest(const CScanSocket& scanSocket);
    bool askScanAddresses(QUdpSocket& socket);
    void keepDatagram(const QHostAddress& sender, const QHostAddress& localAddress, const QByteArray& data);
    void addDetectedInterface(const CConfigParamT93& param);

    const CScanStop& m_stop;
    const bool m_skipLoopback;
    const quint16 m_scanPort;
    const QList<QHostAddress> m_scanAddresses;
    QList<QNetworkInterface> m_allInterfaces;
    QList<QNetworkInterface> m_interfaces; ///< those that are scanned
    std::vector<CScanSocket> m_scanSockets;
    QByteArray m_identRequest;
    std::uint16_t m_sequence = 0; ///< of the next request
    std::vector<CReceivedDatagram> m_receivedDatagrams;
    SKept m_kept;
    QHash<QHostAddress, SKept> m_keptOf; ///< by sender
    QList<CDetectedInterface> m_detectedInterfaces;
};

/// One scan, in a thread of its own: made, started, finished, read and deleted by the plugin object. It ends
/// `waitTimeMs` after the last request was sent, and only while the thread that created it runs its event loop; `stop`
/// ends it without that.
class CT93DeviceDetectionThread : public QThread
{
    Q_OBJECT

public:
    /// Keeps a copy of `scanAddresses`.
    CT93DeviceDetectionThread(const QList<QHostAddress>& scanAddresses, bool skipLoopback, int waitTimeMs,
                              quint16 scanPort, QObject* parent);
    /// Only of a thread that is not running.
    ~CT93DeviceDetectionThread() override;

    /// What was found; empty before `finished`, and after `stop`.
    QList<CDetectedInterface> detectedInterfaces() const;
    /// Ends the scan as soon as possible, whatever it is doing, with an empty result. From any thread; does not wait.
    void stop();
    /// The host's log handler holds the scan up.
    bool isLogging() const { return m_stop.isLogging(); }

public Q_SLOTS:
    void timeoutWaitForDatagrams();

protected:
    void run() override;

private:
    void waitForReplies();

    const QList<QHostAddress> m_scanAddresses;
    const bool m_skipLoopback;
    const int m_waitTimeMs;
    const quint16 m_scanPort;
    CScanStop m_stop;
    std::unique_ptr<CT93DeviceDetection> m_detection; ///< during run() only, like the timer
    std::unique_ptr<QTimer> m_waitTimer;
    mutable std::mutex m_resultMutex;
    QList<CDetectedInterface> m_detectedInterfaces;
};

} // namespace vexmor::Cim
