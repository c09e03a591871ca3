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

/// The interface to one T93 gateway: the one place where link, timers, frames, queue and description meet.
///
/// Created closed by the plugin object; owned by whoever received it. Lives in the thread that created it, or that it
/// was moved to while closed, and needs that thread's event loop; only `readMessage` may be called from other threads.
/// While open it regains a lost TCP connection: at once, but once in 3 s at most, and without limit. What was accepted
/// for sending before a loss is never sent after it.
///
/// The connection state in the description is connected from the moment the TCP connection stands (or the UDP socket is
/// bound). It is not connected after closing, and after a loss: a lost link is given up when all that came over it has
/// been handed over, from the event loop.
///
/// The spy handler and every slot that the host connects may close, reopen or delete the interface.
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

    /// Closed, with the description, the configuration and the spy handler of this one; the description still has this
    /// one's connection state.
    CCanInterface* clone() override;
    /// 0; 2 when not open; 109 (and interface error 4) when `checkConnection` is 1 and the TCP connection is down.
    int resetCommunication(int checkConnection) override;
    /// Blocks for up to 1000 ms while TCP connects. 0 when open; 1 when it was open already; 103, 104 or 105, and
    /// closed, otherwise. Pending events are processed once: when one of them closes or deletes this interface the
    /// result is 103, when one of them opens it anew 1.
    int openCommunication() override;
    int closeCommunication() override;
    /// 0; 4 when no message waits, 2 when not open; `message` is then untouched. From any thread.
    int readMessage(CCanMessage& message) override;
    /// 0 when the message was handed over whole; 2 when not open, 102 when the spy handler closed the interface, 108
    /// when the link failed or about a second of a full bus waits already for a gateway that does not read, 109 while
    /// the TCP connection is down. A refused message is never sent later.
    int writeMessage(const CCanMessage& message) override;
    int busload(int& percent) override;
    QString errorCodeToString(int code) override;
    QString interfaceErrorToString(int error) override;
    bool isOpened() override;
    int baudrate() override;
    /// 50, 100, 125, 250, 500 or 1000 kbit/s.
    bool setBaudrate(int kbitPerSecond) override;
    /// Allowed while open: over TCP a reconnection and the next open use the loaded values; over UDP address and port
    /// count at once for what is sent. The bit rate reaches the gateway with the next open; `baudrate` and the bus load
    /// use it at once.
    int loadSettings(const QString& group) override;
    int saveSettings(const QString& group) override;
    /// As CCanInterface has it. A host without a QApplication gets no dialog, a warning and 0.
    int configure(QWidget* parent, Qt::WindowFlags flags) override;
    QString interfaceType() override;
    /// Also takes address and port of the gateway from the port text, when it has the IP form.
    int setCommonInfo(const CCommonInfo& info) override;

    virtual CConfigParamT93 configParam();
    /// Replaces the whole configuration, also while open: as `loadSettings` does.
    virtual void setConfigParam(const CConfigParamT93& param);

    /// Fills the translated texts of the gateway's codes and errors, and the common ones, from the translators
    /// installed now. From any thread, also while others read the texts.
    static void retranslateErrorStrings();

Q_SIGNALS:
    /// Trouble that arose on its own, 0 to 11; always from the event loop, never from within an operation.
    void interfaceError(int error);
    /// The way there, not for hosts: emitted where the trouble arises, delivered as interfaceError from the event loop.
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
    void requestStartup(bool reset);
    void sendBaudrate();

    // Sending
    int txRmSend(const SRmRequest& request, const CCanMessage* message = nullptr);
    int sendCommand(ERmCommand command, std::initializer_list<std::uint8_t> payload = {});

    // Receiving
    bool RxRmTcp(const CHostCall& call, const char* bytes, qint64 count);
    bool callSpyHandler(const CHostCall& call, const CCanMessage* received);
    const CCanMessage* RM_ParseRxMsg(const SRmFrame& frame); // the CAN message in the frame, or null
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

    // Properties, as canInterface.h describes them; of a closed interface the setters change `m_configParam`.
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
    std::shared_ptr<CGatewayLink> m_link; ///< null while closed; another one after each loss
    std::uint32_t m_openings = 0;         ///< so far; tells a reopened interface from one whose link was lost
    QTimer m_connectSvTimer;              ///< supervises attempts to reconnect
    QDeadlineTimer m_nextReconnection;    ///< not before
    QElapsedTimer m_sinceFrame;           ///< since the last valid frame of this opening; invalid before the first
    CCanMsgQueue m_canMsgQueue;
    QTimer m_busloadPollTimer;
    CBusloadMeter m_busload;
    bool m_deviceIdExpected = false;
    QPointer<QDialog> m_configDialog; ///< while `configure` runs

    static const QString m_type;
    static const char* const m_errorRcStrings[GATEWAY_RC_COUNT];             ///< English texts of codes 100 to 109
    static const char* const m_interfaceErrorStrings[INTERFACE_ERROR_COUNT]; ///< English texts by interface error
    static QString m_errorRcStringsTr[GATEWAY_RC_COUNT];                     ///< translated, empty until retranslated
    static QString m_interfaceErrorStringsTr[INTERFACE_ERROR_COUNT];
};

} // namespace vexmor::Cim
