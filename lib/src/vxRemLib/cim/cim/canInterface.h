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
/// closes it.
///
/// Ownership: `CCanInterfacePlugin::createInterface`, `clone` and a scan return new, closed objects, each owned by
/// whoever received it. An object may be deleted at any time, also in a callback. Delete all of them before the library
/// is unloaded and before the application object is deleted.
///
/// Threads: an object is created in the plugin's thread. While it is closed, `moveToThread` can move it to another. Use
/// and delete it only in the thread where it lives; messages arrive only while that thread runs its event loop. While
/// the object exists, any thread may call `readMessage`, `errorCodeToString`, `interfaceErrorToString` and
/// `commonErrorCodeToString`.
///
/// To end a worker thread with an interface: in that thread call `closeCommunication` and `delete` (or `deleteLater`,
/// which takes effect when the thread's event loop ends), then call `QThread::quit` and `wait`.
///
/// Results: operations return `int` codes, named in resultCodes.h; `errorCodeToString` returns their texts. 0 is
/// success, 1 to 10 are common to all interfaces, codes from 100 on belong to the implementation. Expected failures
/// never throw.
///
/// Errors that arise outside of an operation are reported by the implementation's signal `interfaceError(int error)`.
/// Its numbers are those of EInterfaceError in resultCodes.h; `interfaceErrorToString` returns their texts. Connect to
/// it by name: `SIGNAL(interfaceError(int))`. It is emitted from the event loop, never within an operation. An error
/// that arose before `closeCommunication` may therefore be reported after it, even after the next `openCommunication`.
/// Do not wait for the user in the slot: a modal dialog runs the event loop, and each further error would open another
/// dialog on top of it.
///
/// An implementation regains a lost link by itself, and no signal reports it: poll `commonInfo().connectionState()`.
///
/// Properties: all parameters are properties of the object, so that no header of the implementation is needed:
/// `canInterface->setProperty("Protocol", "UDP")`, `canInterface->property("Protocol")`. The properties of the T93 are
/// named as the keys of the settings store, without dashes:
///
///     Hostname                QString    name of the gateway, shown to the user
///     IPAddress               QString    IPv4 address of the gateway, like 192.168.1.70, without leading zeros
///     Port                    qlonglong  port of the gateway, 0 to 65535
///     Protocol                QString    TCP or UDP
///     Service                 QString    socket mode of the gateway, SERVER or CLIENT; shown to the user
///     LocalIPAddress          QString    UDP: address of this computer to which the socket is bound; 0.0.0.0: any
///     UdpBindAnyIp            bool       UDP: bind the socket to all addresses of this computer
///     AutoIpUpdate            bool       stored for the user; has no effect
///     BusloadPollTime         qlonglong  ms between bus load measurements, 0 to 4294967295. 0 stands for 100, without
///                                        an estimate for a gateway that does not measure the load itself
///     BusloadMeasureInterval  qlonglong  ms over which the gateway measures the bus load, 0 to 65535
///     CanBaudrate             qlonglong  bit rate in kbit/s, as for `setBaudrate`. 0: opening leaves the gateway's
///                                        rate unchanged, with a Qt warning, and the bus load is not updated
///
/// They can be read at any time and set while the interface is closed. IPAddress, Port and Protocol also change the
/// port text of the description. A value out of range, and any value while the interface is open, is refused with a Qt
/// warning that gives the reason, and changes nothing. `setProperty` returns true nevertheless, because the property
/// exists. Read the property back: otherwise the next open uses the old value, and a wrong bit rate (initially 100
/// kbit/s) disturbs the bus:
///
///     canInterface->setProperty("CanBaudrate", rate);
///     if (canInterface->property("CanBaudrate").toInt() != rate) { /* refused: do not open */ }
///
/// A DHCP flag in the settings store is preserved, but it is not a property and has no effect.
///
/// One property is read-only:
///
///     MillisecondsSinceFrame  qlonglong  ms since the last valid frame from the gateway; -1 before the first frame
///                                        after opening, and while the interface is closed
///
/// Every frame with a correct checksum counts, whatever it carries; the loss of a link does not restart the count. Over
/// UDP this property is the only evidence of a gateway: `openCommunication` returns 0 and the connection state is
/// connected as soon as the local socket is bound. From a gateway that measures the bus load, the interface requests
/// the load BusloadPollTime after each reply; three times BusloadPollTime without a frame means that the gateway no
/// longer answers. Over UDP a lost request or reply ends these requests; `resetCommunication` starts them again. A
/// gateway that does not measure the load receives no such requests, and is silent while its bus is idle.
///
/// Broadcast mode: with Protocol UDP and IPAddress 255.255.255.255, messages reach every gateway on the network, and
/// messages from all of them are received, without a mark of their origin. Identity and bus load are not requested:
/// interface identifier and firmware version keep their values, and the load is an estimate.
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
    /// A function that is called for every message: with `sending` true before a message is sent, whatever the outcome;
    /// with false after a received message was stored, or refused by a full queue. It is called in the thread of the
    /// interface; its result is ignored. `message` is valid only during the call, and neither argument may be changed.
    ///
    /// The handler receives no context: to act on the interface, keep a pointer to it. It may close, reopen or delete
    /// the interface and run the event loop; messages stay in order. Until it returns, nothing more is received, and a
    /// link that is lost meanwhile is neither reported nor regained: messages that came before the loss are delivered
    /// before error 0.
    using SpyHandler = int (*)(const CCanInterface& canInterface, bool sending, const CCanMessage& message);

    CCanInterface();
    ~CCanInterface() override;

    /// Returns a new, closed interface with the same description, configuration and spy handler; the caller owns it.
    /// Its description keeps the connection state of this interface until it is opened.
    virtual CCanInterface* clone() = 0;
    /// Resets the gateway and restarts the bus load measurement. Returns 0, or 2 when the interface is not open. While
    /// the link is down nothing reaches the gateway: with `checkConnection` 1 the result is then 109, and interface
    /// error 4 is raised; otherwise it is 0. A link that is regained later does not repeat the reset.
    virtual int resetCommunication(int checkConnection) = 0;
    /// Opens the interface and sets the bit rate of the gateway's CAN bus. Over TCP it blocks for up to about a second
    /// and, when connected, processes pending events of the calling thread.
    ///
    /// Returns 0 when the interface is open; 1 when it was open already, or such an event opened it; 103 when no TCP
    /// connection was made within a second, or such an event closed or deleted the interface; 104 when the local
    /// address cannot be bound (UDP); 105 when the protocol is neither TCP nor UDP. The interface stays closed with 103
    /// to 105.
    ///
    /// Over UDP, 0 and the connection state "connected" mean only that the local socket is bound, whether or not a
    /// gateway has the address. MillisecondsSinceFrame shows whether one answers; except in broadcast mode, it does so
    /// within milliseconds.
    virtual int openCommunication() = 0;
    /// Closes the interface at once. Messages that were not read yet, and messages that were accepted for sending but
    /// did not leave yet (up to about a second of a full bus), are discarded: after a burst, run the event loop for a
    /// moment before. Always returns 0, also when the interface is not open.
    virtual int closeCommunication() = 0;
    /// Takes the oldest received message from the queue. Returns 0; 4 when the queue is empty, 2 when the interface is
    /// not open: `message` is then unchanged. May be called from any thread. Messages carry no time stamp, and messages
    /// sent by this interface do not appear here; use a spy handler for both.
    virtual int readMessage(CCanMessage& message) = 0;
    /// Sends a message. Returns 0 when it was accepted whole; with any other code nothing of it will ever be sent: 2
    /// when the interface is not open, 102 when the spy handler closed or deleted it, 108 when the link failed or about
    /// a second of a full bus already waits for a gateway that does not read, 109 while the TCP connection is down.
    ///
    /// Check identifiers that come from users: they have 11 bits. One above 0x7FF is sent unchanged, and what a gateway
    /// does with it is undefined.
    virtual int writeMessage(const CCanMessage& message) = 0;
    /// Sets `percent` to the load of the CAN bus in percent of the bit rate, rounded down; 0 before the first
    /// measurement. Returns 0, or 2 when the interface is not open: `percent` is then unchanged. The value can exceed
    /// 100 when the bit rate set here is below that of the bus, or when frames are counted longer than they are: show
    /// such values as 100. It keeps its last value while a gateway does not answer.
    virtual int busload(int& percent) = 0;
    /// Returns the translated text of a result code, empty for an unknown code. May be called from any thread.
    virtual QString errorCodeToString(int code) = 0;
    /// Returns the translated text of an interface error for the user, several lines; empty for an unknown error. May
    /// be called from any thread.
    virtual QString interfaceErrorToString(int error) = 0;
    /// Returns true from a successful open to the close, also while a lost link is being regained.
    virtual bool isOpened() = 0;
    /// Returns the bit rate in kbit/s that was set here; 0 when opening leaves the gateway's rate unchanged. The rate
    /// of the gateway itself cannot be queried.
    virtual int baudrate() = 0;
    /// Sets the bit rate in kbit/s that the next open sends to the gateway: 50, 100 (the default), 125, 250, 500 or
    /// 1000 for a T93. Returns false, and changes nothing, when the interface is open or does not know the rate.
    virtual bool setBaudrate(int kbitPerSecond) = 0;
    /// Loads description and parameters from the settings group of this interface's unique name below `group`, or below
    /// "CanInterfaces" when `group` is a null string. Returns 0; 7 when the group belongs to another plugin, 8 or 9
    /// when a stored value is invalid: nothing is changed then. It also returns 0, and changes nothing, when nothing is
    /// stored under the name: where that matters, look it up in the store.
    ///
    /// Of an open interface, `baudrate` and the bus load use the new values at once; address and port count from the
    /// next reconnection on (TCP) or at once for what is sent (UDP); protocol, local address and the gateway's bit rate
    /// change with the next open.
    virtual int loadSettings(const QString& group) = 0;
    /// Stores description and parameters in place of everything stored under this unique name below `group`
    /// ("CanInterfaces" for a null string). Returns 0; 10, and nothing is written, when a parameter has no text.
    ///
    /// 0 does not mean that the data reached the disk. To find out, create a QSettings before this call, and after it
    /// call `sync` and check `status` of that object; one created later may not know of the failure.
    virtual int saveSettings(const QString& group) = 0;
    /// Shows a modal dialog in which the user edits the parameters, and runs the event loop until it is closed.
    /// `parent` may be null. Call it in the GUI thread only, where the interface must live.
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
    /// The T93 also takes its address and port, but not its protocol, from a port text of the IP form. It does not
    /// check them and returns 0 in any case, even for these, which the properties IPAddress and Port refuse:
    /// - A text that is no IPv4 address, such as a host name, leaves the interface without an address. Opening then
    ///   fails with 103, and settings saved in this state can never be loaded again (code 9).
    /// - Address parts with leading zeros are octal: 010.0.0.5 is 8.0.0.5. In the dialog they are decimal.
    /// - A port above 65535 loses its higher bits: 70000 becomes 4464. One that is no number leaves the port unchanged,
    ///   with a Qt warning.
    virtual int setCommonInfo(const CCommonInfo& info);
    /// Returns the translated text of a common result code, 0 to 10; empty for any other code. May be called from any
    /// thread.
    virtual QString commonErrorCodeToString(int code);

    /// Translates the texts of the common result codes (context "QObject") by the translators installed now. May be
    /// called from any thread, also while others read the texts. A plugin calls it when it is loaded and when the
    /// language of the application changes.
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
