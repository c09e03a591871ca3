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

/// One endpoint (protocol, socket mode and port) of a gateway that a scan found: description and parameters for an
/// interface.
struct CDetectedInterface {
    CCommonInfo commonInfo;
    CConfigParamT93 configParam;
};

/// A socket bound to one address of this computer. A scan sends its requests from all of them.
struct CScanSocket {
    std::unique_ptr<QUdpSocket> socket;
    QNetworkAddressEntry addressEntry; ///< Address to which the socket is bound.
};

/// A datagram of the kind of an ident reply.
struct CReceivedDatagram {
    QHostAddress localAddress; ///< Address of the socket that received it.
    QByteArray data;
};

/// Requests the early end of a scan, and shows whether a log handler may delay this end. Any thread may use it.
class CScanStop
{
public:
    /// Marks the scan thread as logging for the lifetime of this object.
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
    /// Pauses the calling thread until `milliseconds` have passed or a stop is requested. Returns false when a stop was
    /// requested.
    bool pause(int milliseconds) const;
    /// Returns whether the scan thread is in the log handler, which may block it.
    bool isLogging() const { return m_isLogging; }

private:
    mutable std::atomic<bool> m_isLogging{false};
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_requestedCondition;
    bool m_requested = false;
};

/// The steps of a scan, all called in the scan thread: sends requests from each address of this computer, collects the
/// replies and evaluates them. Failures (an address that cannot be bound, a request that cannot be sent) are not
/// reported; they only make the result shorter.
///
/// Memory is bounded: at most LIMIT replies are kept in all, and at most SENDER_LIMIT of one sender, so that a flood
/// does not hide the gateways. Bytes beyond the longest possible reply are not read.
class CT93DeviceDetection : public QObject
{
    Q_OBJECT

public:
    /// A number of replies that are kept, or the limit for it.
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

    /// Requests are broadcast and also sent to each of `scanAddresses`, on port `scanPort`. `stop` must outlive the
    /// object.
    CT93DeviceDetection(const QList<QHostAddress>& scanAddresses, bool skipLoopback, quint16 scanPort,
                        const CScanStop& stop);
    ~CT93DeviceDetection() override;

    // The steps of a scan, in this order: collect, bind, send (below), close, evaluate. Each ends early once a stop is
    // requested.
    void collectNetworkInterfaces();
    void bindSockets();
    /// Makes `detectedInterfaces` from the received datagrams, in the order of arrival.
    void evaluateDatagrams();
    /// Ends reception and keeps the received datagrams.
    void closeSockets();
    void deleteSockets();
    const QList<CDetectedInterface>& detectedInterfaces() const { return m_detectedInterfaces; }

    /// Returns host name, protocol, service and port, joined like hall-gw-UDP-SERVER-30000.
    static QString buildUniqueName(const CConfigParamT93& param);

public Q_SLOTS:
    /// Sends an ident request from each socket: one as a broadcast, and one to each scan address. Pauses 100 ms between
    /// the broadcasts and 40 ms after each other request, so that the replies do not arrive all at once.
    void sendIdentRequests();
    void readPendingDatagrams();

private:
    bool broadcastIdentRequest(const CScanSocket& scanSocket);
    bool sendToScanAddresses(QUdpSocket& socket);
    void keepDatagram(const QHostAddress& sender, const QHostAddress& localAddress, const QByteArray& data);
    void addDetectedInterface(const CConfigParamT93& param);

    const CScanStop& m_stop;
    const bool m_skipLoopback;
    const quint16 m_scanPort;
    const QList<QHostAddress> m_scanAddresses;
    QList<QNetworkInterface> m_allInterfaces;
    QList<QNetworkInterface> m_interfaces; ///< Interfaces that are scanned.
    std::vector<CScanSocket> m_scanSockets;
    QByteArray m_identRequest;
    std::uint16_t m_sequence = 0; ///< Sequence of the next request.
    std::vector<CReceivedDatagram> m_receivedDatagrams;
    SKept m_kept;
    QHash<QHostAddress, SKept> m_keptBySender; ///< Kept replies by sender.
    QList<CDetectedInterface> m_detectedInterfaces;
};

/// The thread of one scan, owned by the plugin object. It ends `waitTimeMs` after the last request was sent, provided
/// that the thread that created it runs its event loop; `stop` ends it in any case.
class CT93DeviceDetectionThread : public QThread
{
    Q_OBJECT

public:
    /// Keeps a copy of `scanAddresses`.
    CT93DeviceDetectionThread(const QList<QHostAddress>& scanAddresses, bool skipLoopback, int waitTimeMs,
                              quint16 scanPort, QObject* parent);
    /// The thread must not be running.
    ~CT93DeviceDetectionThread() override;

    /// Returns the interfaces found; none before the thread has finished, and none after `stop`.
    QList<CDetectedInterface> detectedInterfaces() const;
    /// Ends the scan as soon as possible, with an empty result, and does not wait for it. Any thread may call this.
    void stop();
    /// Returns whether the scan thread is in the log handler, which may block it.
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
    std::unique_ptr<CT93DeviceDetection> m_detection; ///< Exists only during run(), as does `m_waitTimer`.
    std::unique_ptr<QTimer> m_waitTimer;
    mutable std::mutex m_resultMutex;
    QList<CDetectedInterface> m_detectedInterfaces;
};

} // namespace vexmor::Cim
