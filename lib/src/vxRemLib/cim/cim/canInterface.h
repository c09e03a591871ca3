#pragma once

#include "cim/canMessage.h"
#include "cim/cimExport.h"
#include "cim/commonInfoInterface.h"

#include <QObject>
#include <QString>

class QWidget;

namespace vexmor::Cim
{

/// One CAN interface of any plugin: the class through which a host application opens, configures, reads, writes and
/// closes it. Each plugin has its own implementation, a derived class. The class for the T93 reaches a CAN bus through
/// a T93, a gateway between Ethernet and CAN. The link to the gateway is a TCP connection, which can be lost, or a
/// bound UDP socket, which is never lost.
///
/// Ownership: `CCanInterfacePlugin::createInterface`, `clone` and a scan return new, closed objects, each owned by
/// whoever received it. An object may be deleted at any time, also in a callback. Delete all of them before the library
/// is unloaded and before the application object is deleted.
///
/// Threads: an object lives in the plugin's thread (the thread that loaded the library); a clone lives in the thread
/// that called `clone`. While an object is closed, `moveToThread` can move it to another thread. Use and delete an
/// object only in the thread where it lives; messages arrive only while that thread runs its event loop. While the
/// object exists, any thread may call `readMessage`, `errorCodeToString`, `interfaceErrorToString` and
/// `commonErrorCodeToString`.
///
/// To end a worker thread with an interface: in that thread call `closeCommunication` and `delete` (or `deleteLater`,
/// which takes effect at the latest when the thread's event loop ends), then call `QThread::quit` and `wait`.
///
/// Results: operations return `int` codes, named in resultCodes.h; `errorCodeToString` returns their texts. 0 is
/// success, 1 to 10 are common to all interfaces, codes from 100 on belong to the implementation. Expected failures
/// never throw.
///
/// Interface errors, which mostly arise outside of an operation, are reported by the implementation's signal
/// `interfaceError(int error)`. The numbers are those of EInterfaceError in resultCodes.h; `interfaceErrorToString`
/// returns their texts. Connect to the signal by name: `SIGNAL(interfaceError(int))`. It is emitted from the event
/// loop, never by an operation itself; `openCommunication` and `configure` run the event loop, however. An error that
/// arose before `closeCommunication` may therefore be reported after this call, even after the next
/// `openCommunication`. Do not wait for the user in the slot: a modal dialog runs the event loop, and each further
/// error would open another dialog on top of it.
///
/// An implementation regains a lost link by itself, and no signal reports that the link is up again: poll
/// `commonInfo().connectionState()`.
///
/// Properties: all parameters are properties of the object, so that no header of the implementation is needed:
/// `canInterface->setProperty("Protocol", "UDP")`, `canInterface->property("Protocol")`. "Qt warning" here means a line
/// of qWarning. The properties of the T93 have the names of the keys in the settings store (see below), without dashes.
/// Default values are in brackets; texts without one are empty:
///
///     Hostname                QString    name of the gateway, stored for the user; has no effect
///     IPAddress               QString    IPv4 address of the gateway without leading zeros [192.168.1.70]
///     Port                    qlonglong  port of the gateway, 0 to 65535 [30000]
///     Protocol                QString    TCP or UDP [TCP]
///     Service                 QString    socket mode of the gateway, SERVER or CLIENT, stored for the user; has no
///                                        effect [SERVER]
///     LocalIPAddress          QString    UDP: address of this computer to which the socket is bound; 0.0.0.0
///                                        stands for all IPv4 addresses [0.0.0.0]
///     UdpBindAnyIp            bool       UDP: bind the socket to all addresses of this computer, IPv6 included,
///                                        and ignore datagrams from LocalIPAddress [false]
///     AutoIpUpdate            bool       stored for the user; has no effect [false]
///     BusloadPollTime         qlonglong  ms from one update of the bus load to the next (see `busload`), 0 to
///                                        4294967295; 0 stands for 100, but no load is estimated [800]
///     BusloadMeasureInterval  qlonglong  ms over which the gateway measures the bus load, 0 to 65535 [1000]
///     CanBaudrate             qlonglong  bit rate in kbit/s, as for `setBaudrate`, or 0: opening then leaves the
///                                        gateway's rate unchanged, logs a Qt warning, and the bus load is 0 [100]
///
/// The properties can be read at any time and set while the interface is closed. IPAddress, Port and Protocol also
/// change the port text of the description (`commonInfo().port()`). A value out of range, and any value while the
/// interface is open, is refused with a Qt warning that gives the reason, and changes nothing. `setProperty` returns
/// true nevertheless, because the property exists. Read the property back, and do not open the interface if it differs:
/// the old value is still set, and a wrong bit rate (initially 100 kbit/s) disturbs the bus:
///
///     canInterface->setProperty("CanBaudrate", rate);
///     if (canInterface->property("CanBaudrate").toInt() != rate) { /* refused: do not open */ }
///
/// The DHCP flag in the settings store is no property and has no effect. Loading and saving preserve it; OK in the
/// dialog of `configure` clears it.
///
/// One property is read-only:
///
///     MillisecondsSinceFrame  qlonglong  ms since the last valid frame from the gateway; -1 before the first frame
///                                        after opening, and while the interface is closed
///
/// A frame is a unit of the gateway's own protocol, which carries a CAN message, an answer or a report. Every frame
/// with a correct checksum counts; the loss of a link does not restart the count. Over UDP this property is the only
/// evidence of a gateway: `openCommunication` returns 0 and the connection state is connected as soon as the local
/// socket is bound. From a gateway that measures the bus load, the interface requests the load again when
/// BusloadPollTime has passed since the last answer; three times BusloadPollTime without a frame means that the gateway
/// no longer answers. Over UDP a lost request or answer ends these requests; `resetCommunication` starts them again. A
/// gateway that does not measure the load is not sent such requests, and is silent while its bus is idle.
///
/// Broadcast mode: with Protocol UDP and IPAddress 255.255.255.255, messages reach every gateway on the network, and
/// messages from all of them are received, without a mark of their origin. Their identity and bus load are not
/// requested: interface identifier and firmware version keep their values, and the bus load is an estimate.
///
/// Settings are stored under the organisation and application name of QCoreApplication. Set both: without an
/// organisation name the store is "Unknown Organization", which other applications without a name share. The stored
/// interfaces are the groups below "CanInterfaces":
///
///     QSettings settings;
///     settings.beginGroup("CanInterfaces");
///     for (const QString& group : settings.childGroups()) {
///         names.append(CCommonInfo::uniqueNameOfSettingsGroup(group));
///     }
///
/// The order of the virtual functions is part of the contract: host application and plugin are built separately.
class CIM_EXPORT CCanInterface : public QObject
{
public:
    /// A function that is called for every message: before `writeMessage` sends it on an open interface, whatever the
    /// outcome (`sending` is true), and after a received message was stored, or refused by a full queue (`sending` is
    /// false). It is called in the thread of the interface; its result is ignored. `message` is valid only during the
    /// call. Do not cast away the const of the arguments.
    ///
    /// The handler receives no context: to act on the interface, keep a pointer to it. It may close, reopen or delete
    /// the interface and run the event loop; messages stay in order. Until the handler returns, nothing more is
    /// received, and a link that is lost meanwhile is neither reported nor regained: messages that came before the loss
    /// are delivered before interface error 0 (connection lost).
    using SpyHandler = int (*)(const CCanInterface& canInterface, bool sending, const CCanMessage& message);

    CCanInterface();
    ~CCanInterface() override;

    /// Returns a new, closed interface with the same description, configuration and spy handler; the caller owns it.
    /// The description of the clone has the connection state of the original until the clone is opened. The clone lives
    /// in the calling thread.
    virtual CCanInterface* clone() = 0;
    /// Resets the gateway, requests its identity again and restarts the bus load measurement. The bit rate is not sent
    /// again: only `openCommunication` sends it. Returns 0, or 2 when the interface is not open. While the link is down
    /// nothing reaches the gateway: with `checkConnection` 1 the result is then 109, and interface error 4 is raised;
    /// with any other `checkConnection` the result is 0. A link that is regained later does not repeat the reset.
    virtual int resetCommunication(int checkConnection) = 0;
    /// Opens the interface and sets the bit rate of the gateway's CAN bus. Over TCP it blocks for up to about a second
    /// and, when connected, processes pending events of the calling thread.
    ///
    /// Returns 0 when the interface is open; 1 when it was open already, or one of these events closed and reopened it;
    /// 103 when the TCP connection was refused or not made within a second, or one of these events closed or deleted
    /// the interface; 104 when the local address cannot be bound (UDP); 105 when the protocol is neither TCP nor UDP.
    /// With 103 to 105 the interface is closed. When a lost link is regained, the bit rate is not sent again.
    ///
    /// Over UDP, 0 and the connection state "connected" mean only that the local socket is bound, whether or not a
    /// gateway has the address. MillisecondsSinceFrame shows whether a gateway answers: except in broadcast mode, a
    /// gateway does so within milliseconds.
    virtual int openCommunication() = 0;
    /// Closes the interface at once. Messages that were not read yet, and messages that were accepted for sending but
    /// did not leave yet (at most those of about a second of a full bus), are discarded: after a
    /// burst, run the event loop for a moment before closing. Always returns 0, also when the interface is not open.
    virtual int closeCommunication() = 0;
    /// Takes the oldest received message from the queue, which holds up to 10000 (see interface error 2). Returns 0; 4
    /// when the queue is empty, 2 when the interface is not open: `message` is then unchanged. May be called from any
    /// thread. Messages carry no time stamp, and messages sent by this interface do not appear here: to take the time,
    /// or to see sent messages, use a spy handler.
    virtual int readMessage(CCanMessage& message) = 0;
    /// Sends a message. Returns 0 when the message was accepted; with any other code, no part of it will ever be sent:
    /// - 2: the interface is not open;
    /// - 102: the spy handler closed or deleted the interface;
    /// - 108: the link failed, or the messages of about a second of a full bus wait for a gateway that does not read;
    /// - 109: the TCP connection is down.
    ///
    /// Check identifiers that come from users: they have 11 bits. One above 0x7FF is sent unchanged, and what a gateway
    /// does with it is undefined.
    virtual int writeMessage(const CCanMessage& message) = 0;
    /// Sets `percent` to the load of the CAN bus in percent of the bit rate, rounded down; 0 before the first update.
    /// The load is measured by the gateway or, if the gateway does not measure it, estimated by the interface from the
    /// messages that it sends and receives. Returns 0, or 2 when the interface is not open: `percent` is then
    /// unchanged. The value can exceed 100 when the bit rate set in this interface is below that of the bus, or because
    /// the gateway's measurement counts every message with the same length: show such values as 100. The load keeps its
    /// last value while a gateway does not answer.
    virtual int busload(int& percent) = 0;
    /// Returns the translated text of a result code, empty for an unknown code. May be called from any thread.
    virtual QString errorCodeToString(int code) = 0;
    /// Returns the translated text of an interface error for the user, several lines; empty for an unknown error. May
    /// be called from any thread.
    virtual QString interfaceErrorToString(int error) = 0;
    /// Returns true from a successful open to the close, also while a lost link is being regained, and already in
    /// events that `openCommunication` processes.
    virtual bool isOpened() = 0;
    /// Returns the bit rate in kbit/s that is set in this interface; 0 when opening leaves the gateway's rate
    /// unchanged. The rate of the gateway itself cannot be queried.
    virtual int baudrate() = 0;
    /// Sets the bit rate in kbit/s that the next open sends to the gateway: 50, 100 (the default), 125, 250, 500 or
    /// 1000 for a T93. (The property CanBaudrate can also be 0, which leaves the gateway's rate unchanged.) Returns
    /// false, and changes nothing, when the interface is open or does not support the rate.
    virtual bool setBaudrate(int kbitPerSecond) = 0;
    /// Loads description and parameters. They are read from the settings group that belongs to the unique name of this
    /// interface (set it before, by `setCommonInfo`), below `group`, or below "CanInterfaces" when `group` is a null
    /// string. Returns 0; 7 when the group belongs to another plugin, 8 when the stored protocol or socket mode is
    /// unknown, 9 when a stored address is invalid: nothing is changed then. Numbers are not checked: a stored port
    /// above 65535 loses its higher bits, and with a bit rate that is not supported, opening leaves the gateway's rate
    /// unchanged, with a Qt warning.
    ///
    /// The result is also 0, and nothing is changed, when nothing is stored under the name: where that matters, first
    /// search the store for the name.
    ///
    /// While the interface is open, the new values take effect at different times: in `baudrate` and the bus load at
    /// once; address and port with the next reconnection (TCP) or the next message sent (UDP); protocol, local address
    /// and the gateway's bit rate with the next open. With UdpBindAnyIp, datagrams from a new local address are ignored
    /// at once.
    virtual int loadSettings(const QString& group) = 0;
    /// Stores description and parameters in place of everything stored under the unique name of this interface below
    /// `group` ("CanInterfaces" for a null string). CCommonInfo::settingsGroup describes what happens without a unique
    /// name. Returns 0; 10, and nothing is written, when the protocol is neither TCP, UDP nor "NA"; a scan may
    /// find such an interface.
    ///
    /// 0 does not mean that the data reached the disk. To find out, create a QSettings object before this call; after
    /// this call, call its `sync` and check its `status`. An object that is created only after this call may not know
    /// of the failure.
    virtual int saveSettings(const QString& group) = 0;
    /// Shows a modal dialog in which the user edits the parameters, and runs the event loop until it is closed.
    /// `parent` may be null; `flags` are the window flags of the dialog. Call this in the GUI thread only, where the
    /// interface must live.
    ///
    /// OK replaces all parameters by those of the dialog, also those that the user did not change: a bit rate of 0
    /// becomes 100 kbit/s unless the user chooses another, and the two bus load times are limited to 100 to 3000 ms.
    ///
    /// Returns 0 when the user pressed OK or cancelled; 6, without a dialog, when the interface is open; 6, and nothing
    /// is changed, when the user pressed OK but the interface was opened meanwhile. Deleting the interface or the
    /// parent closes the dialog as if cancelled. A call while the dialog is shown brings it to the front and returns 0
    /// at once. Without a QApplication there is no dialog: a Qt warning is logged, and the result is 0.
    virtual int configure(QWidget* parent, Qt::WindowFlags flags) = 0;
    /// Returns the type of the interface, for example "T93".
    virtual QString interfaceType() = 0;
    /// Sets the function that is called for every message; null removes it. Always returns 0.
    virtual int setSpyHandler(SpyHandler handler);
    /// Returns the description; the reference is valid for as long as the interface exists.
    virtual const CCommonInfo& commonInfo();
    /// Replaces the description. Returns 0; 6, and nothing is changed, when the interface is open.
    ///
    /// If the new description has a port text of the IP form, a T93 interface takes address and port, but not the
    /// protocol, from this text, without checking them. The result is 0 even for the following values, which the
    /// properties IPAddress and Port would refuse:
    /// - A text that is no IPv4 address, such as a host name, leaves the interface without an address. Opening over TCP
    ///   then fails with 103, and settings saved in this state can never be loaded again (code 9).
    /// - Address parts with leading zeros are octal: 010.0.0.5 is 8.0.0.5. In the dialog of `configure` they are
    ///   decimal.
    /// - A port above 65535 loses its higher bits: 70000 becomes 4464. A port that is no number leaves the port of the
    ///   interface unchanged, with a Qt warning.
    virtual int setCommonInfo(const CCommonInfo& info);
    /// Returns the translated text of a common result code, 0 to 10; empty for any other code. May be called from any
    /// thread.
    virtual QString commonErrorCodeToString(int code);

    /// Translates the texts of the common result codes (context "QObject") by the translators that are installed at the
    /// time of the call. May be called from any thread, also while other threads read the texts. A plugin calls this
    /// function when it is loaded and when the language of the application changes.
    static void retranslateCommonErrorStrings();

protected:
    static constexpr int COMMON_RC_COUNT = 11;

    CCommonInfo m_commonInfo;
    SpyHandler m_spyHandler;

    static const char* const m_errorCommonRcStrings[COMMON_RC_COUNT]; ///< English texts by code.
    static QString m_errorCommonRcStringsTr[COMMON_RC_COUNT];         ///< Translated texts, empty at first.
};

} // namespace vexmor::Cim

Q_DECLARE_INTERFACE(vexmor::Cim::CCanInterface, "quinmark.CCanInterface/1.0")
