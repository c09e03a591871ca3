#pragma once

#include "InterfaceT93/busloadMeter.h"
#include "InterfaceT93/canMsgQueue.h"
#include "InterfaceT93/configParamT93.h"
#include "InterfaceT93/gatewayLink.h"
#include "InterfaceT93/rmFrame.h"
#include "cim/canInterface.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QPointer>
#include <QTimer>

#include <initializer_list>
#include <memory>
#include <optional>

class QDialog;

namespace vexmor::Cim
{

/// The interface to one T93 gateway, which combines link, timers, frames, queue and description. CCanInterface
/// describes its operations, properties, threads and ownership; the comments here add what is special.
///
/// While open, it regains a lost TCP connection: it tries at once, but no more often than every 3 s, and does not give
/// up. Messages that were accepted before a loss are never sent after it.
///
/// The connection state in the description becomes connected when the TCP connection is made or the UDP socket is
/// bound. It becomes not connected on closing, and after a loss as soon as everything received over the link has been
/// delivered.
///
/// The spy handler and every slot that the host application connects may close, reopen or delete the interface.
class CInterfaceT93 : public CCanInterface
{
    Q_OBJECT
    Q_INTERFACES(vexmor::Cim::CCanInterface)
    Q_PROPERTY(QString Hostname READ hostnameProperty WRITE setHostnameProperty)
    Q_PROPERTY(QString IPAddress READ ipAddressProperty WRITE setIpAddressProperty)
    Q_PROPERTY(qlonglong Port READ portProperty WRITE setPortProperty)
    Q_PROPERTY(QString Protocol READ protocolProperty WRITE setProtocolProperty)
    Q_PROPERTY(QString Service READ serviceProperty WRITE setServiceProperty)
    Q_PROPERTY(QString LocalIPAddress READ localIpAddressProperty WRITE setLocalIpAddressProperty)
    Q_PROPERTY(bool UdpBindAnyIp READ udpBindAnyIpProperty WRITE setUdpBindAnyIpProperty)
    Q_PROPERTY(bool AutoIpUpdate READ autoIpUpdateProperty WRITE setAutoIpUpdateProperty)
    Q_PROPERTY(qlonglong BusloadPollTime READ busloadPollTimeProperty WRITE setBusloadPollTimeProperty)
    Q_PROPERTY(
        qlonglong BusloadMeasureInterval READ busloadMeasureIntervalProperty WRITE setBusloadMeasureIntervalProperty)
    Q_PROPERTY(qlonglong CanBaudrate READ canBaudrateProperty WRITE setCanBaudrateProperty)
    Q_PROPERTY(qlonglong MillisecondsSinceFrame READ millisecondsSinceFrameProperty)

public:
    CInterfaceT93();
    ~CInterfaceT93() override;

    CCanInterface* clone() override;
    int resetCommunication(int checkConnection) override;
    int openCommunication() override;
    int closeCommunication() override;
    int readMessage(CCanMessage& message) override;
    int writeMessage(const CCanMessage& message) override;
    int busload(int& percent) override;
    QString errorCodeToString(int code) override;
    QString interfaceErrorToString(int error) override;
    bool isOpened() override;
    int baudrate() override;
    bool setBaudrate(int kbitPerSecond) override;
    int loadSettings(const QString& group) override;
    int saveSettings(const QString& group) override;
    int configure(QWidget* parent, Qt::WindowFlags flags) override;
    QString interfaceType() override;
    int setCommonInfo(const CCommonInfo& info) override;

    virtual CConfigParamT93 configParam();
    /// Replaces the whole configuration. While the interface is open, the new values take effect as with
    /// `loadSettings`.
    virtual void setConfigParam(const CConfigParamT93& param);

    /// Translates the texts of the gateway's codes and errors, and of the common codes, by the translators that are
    /// installed at the time of the call. May be called from any thread, also while other threads read the texts.
    static void retranslateErrorStrings();

Q_SIGNALS:
    /// Reports an EInterfaceError, 0 to 11. Emitted from the event loop, never within an operation.
    void interfaceError(int error);
    /// For internal use: emitted where an error arises, and passed on as `interfaceError` from the event loop.
    void queuedInterfaceError(int error);

public Q_SLOTS:
    void onSocketConnected();
    void onSocketDisconnected();
    void onConnectSvTimerTimeout();
    void onReadyRead();
    void onBusloadPollTimeout();

private Q_SLOTS:
    void onQueuedInterfaceError(int error);

private:
    class CHostCall;

    static constexpr int GATEWAY_RC_COUNT = 10;
    static constexpr int INTERFACE_ERROR_COUNT = 12;

    // Connection
    void useLink(const std::shared_ptr<CGatewayLink>& link);
    void dropLink();
    void teardown();
    void giveUpLostLink();
    void reconnect();
    /// Sends the requests of a new connection: first a reset of the gateway when `reset` is true, then identity and
    /// measuring interval.
    void requestStartup(bool reset);
    void sendBaudrate();

    // Sending
    int txRmSend(const SRmRequest& request, const CCanMessage* message = nullptr);
    int sendCommand(ERmCommand command, std::initializer_list<std::uint8_t> payload = {});

    // Receiving
    bool RxRmTcp(const CHostCall& call, const char* bytes, qint64 count);
    bool callSpyHandler(const CHostCall& call, const CCanMessage* received);
    const CCanMessage* RM_ParseRxMsg(const SRmFrame& frame); // returns the CAN message in the frame, or null
    const CCanMessage* receiveCanMessage(const SRmFrame& frame);
    void receiveFirmwareVersion(const SRmFrame& frame);
    void receiveDeviceId(const SRmFrame& frame);
    void receiveMacAddress(const SRmFrame& frame);
    void receiveStatus(std::uint8_t flags);

    // Bus load
    void restartBusload();
    void receiveBusload(const SRmFrame& frame);
    void receiveBusloadConfirmation();
    void startBusloadTimer();

    // Properties, which canInterface.h describes. While the interface is closed, the setters change `m_configParam`.
    QString hostnameProperty() const { return m_configParam.hostname(); }
    QString ipAddressProperty() const { return m_configParam.ipAddress().toString(); }
    qlonglong portProperty() const { return m_configParam.port(); }
    QString protocolProperty() const;
    QString serviceProperty() const;
    QString localIpAddressProperty() const { return m_configParam.localIpAddress().toString(); }
    bool udpBindAnyIpProperty() const { return m_configParam.udpBindAnyIp(); }
    bool autoIpUpdateProperty() const { return m_configParam.autoIpUpdate(); }
    qlonglong busloadPollTimeProperty() const { return m_configParam.busloadPollTime(); }
    qlonglong busloadMeasureIntervalProperty() const { return m_configParam.busloadMeasureInterval(); }
    qlonglong canBaudrateProperty() const { return m_configParam.canBaudrate(); }
    qlonglong millisecondsSinceFrameProperty() const { return m_sinceFrame.isValid() ? m_sinceFrame.elapsed() : -1; }
    void setHostnameProperty(const QString& hostname);
    void setIpAddressProperty(const QString& address);
    void setPortProperty(qlonglong port);
    void setProtocolProperty(const QString& protocol);
    void setServiceProperty(const QString& service);
    void setLocalIpAddressProperty(const QString& address);
    void setUdpBindAnyIpProperty(bool bindAny);
    void setAutoIpUpdateProperty(bool update);
    void setBusloadPollTimeProperty(qlonglong milliseconds);
    void setBusloadMeasureIntervalProperty(qlonglong milliseconds);
    void setCanBaudrateProperty(qlonglong kbitPerSecond);
    template <typename Value, typename Argument>
    bool setParam(const char* property, const QString& text, const std::optional<Value>& value, const char* rule,
                  void (CConfigParamT93::*setter)(Argument));
    void updatePortText();

    CConfigParamT93 m_configParam;
    std::shared_ptr<CGatewayLink> m_link; ///< The link to the gateway: null while closed, replaced after each loss.
    std::uint32_t m_openings = 0;         ///< Number of openings, by which a reopening is noticed.
    QTimer m_connectSvTimer;              ///< Timer that supervises attempts to reconnect.
    QDeadlineTimer m_nextReconnection;    ///< Earliest time of the next attempt to reconnect.
    QElapsedTimer m_sinceFrame; ///< Time since the last valid frame; invalid before the first one of an opening.
    CCanMsgQueue m_canMsgQueue;
    QTimer m_busloadPollTimer;
    CBusloadMeter m_busload;
    bool m_deviceIdExpected = false;  ///< The device identification, which contains the version, was requested.
    QPointer<QDialog> m_configDialog; ///< The dialog of `configure`; null unless it is shown.

    static const QString m_type;
    static const char* const m_errorRcStrings[GATEWAY_RC_COUNT];             ///< English texts of codes 100 to 109.
    static const char* const m_interfaceErrorStrings[INTERFACE_ERROR_COUNT]; ///< English texts by interface error.
    static QString m_errorRcStringsTr[GATEWAY_RC_COUNT];                     ///< Translated texts, empty at first.
    static QString m_interfaceErrorStringsTr[INTERFACE_ERROR_COUNT];
};

} // namespace vexmor::Cim
