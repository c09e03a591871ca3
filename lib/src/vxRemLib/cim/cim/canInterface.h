#pragma once

#include "cim/canMessage.h"
#include "cim/cimExport.h"
#include "cim/commonInfoInterface.h"

#include <QObject>
#include <QString>

class QWidget;

namespace vexmor::Cim
{

/// One CAN interface, whatever plugin provides it: the class through which a host opens, configures, reads, writes and
/// closes it. Objects come from `CCanInterfacePlugin::createInterface`, from `clone` or from a scan, are closed at
/// first, and belong to whoever received them; they may be deleted at any time, also in a callback, but all before the
/// library is unloaded and before the application object.
///
/// Threads: an object is made in the plugin's thread, and may be moved to another by `moveToThread` while it is closed.
/// It is used and deleted in the thread where it lives, whose event loop must run for messages to arrive. Only
/// `readMessage` and the texts of codes and errors may be asked for from any thread, as long as the object itself
/// lives.
///
/// A worker thread with an interface is ended in this order: in that thread `closeCommunication` and `delete` (or
/// `deleteLater`, whose work is done when the thread's event loop ends), then `QThread::quit` and `wait`.
///
/// Results are `int` codes, named in resultCodes.h, whose texts `errorCodeToString` gives: 0 is success, 1 to 10 are
/// common to all interfaces, codes from 100 on are the implementation's. Expected failures never throw.
///
/// Trouble that arises on its own is told by the implementation's signal `interfaceError(int error)`, a numbering of
/// its own (resultCodes.h), whose user-facing text `interfaceErrorToString` gives; connect to it by name:
/// `SIGNAL(interfaceError(int))`. It comes from the event loop, never from within an operation; what happened before
/// `closeCommunication` may therefore be told after it, and after a reopening. A slot that shows a modal dialog gets
/// the next error inside of it, and so has a dialog on top of the other for each: show errors without waiting for the
/// user. That a lost link was regained is told by nothing but `commonInfo().connectionState()`: look at it from time to
/// time.
///
/// Parameters beyond bit rate, address and port are properties of the object, which need no library of the
/// implementation: `canInterface->setProperty("Protocol", "UDP")`, `canInterface->property("Protocol")`. Those of the
/// T93, named as the keys of the settings store without their dashes:
///
///     Hostname                QString    the gateway's name, for the user
///     IPAddress               QString    of the gateway, IPv4 like 192.168.1.70 (leading zeros are refused)
///     Port                    qlonglong  of the gateway, 0 to 65535
///     Protocol                QString    TCP or UDP
///     Service                 QString    the gateway's socket mode, SERVER or CLIENT; for the user
///     LocalIPAddress          QString    UDP: of the network interface to the gateway, 0.0.0.0 for any
///     UdpBindAnyIp            bool       UDP: take datagrams at any address of this computer
///     AutoIpUpdate            bool       kept for the user
///     BusloadPollTime         qlonglong  ms from one bus load to the next; 0: 100, and no estimate of a gateway that
///                                        does not measure
///     BusloadMeasureInterval  qlonglong  ms that the gateway measures over, 0 to 65535
///     CanBaudrate             qlonglong  kbit/s as `setBaudrate` takes it, or 0: the gateway's rate is left as it
///                                        is (opening warns of it), and bus load is unknown: it stays as it was
///
/// They can be read at any time, in the interface's thread, and set while it is closed; the port text of the
/// description follows. A value that does not fit, and any value while it is open, is refused with a Qt warning that
/// says why, and changes nothing. `setProperty` gives true all the same: it reports whether the property exists. A host
/// must read the property back, or the next open uses the old value, at first 100 kbit/s, which disturbs a bus that has
/// another rate:
///
///     canInterface->setProperty("CanBaudrate", rate);
///     if (canInterface->property("CanBaudrate").toInt() != rate) { /* refused: do not open */ }
///
/// A stored DHCP flag is kept, but is no property: nothing acts on it.
///
/// Protocol UDP with the IPAddress 255.255.255.255 is the broadcast mode: what is sent reaches every gateway on the
/// network, and what any of them sends is received, without a mark of its origin. No gateway is asked for its identity
/// or its bus load: interface identifier and firmware version stay as they were, and the load is the plugin's estimate.
///
/// One more property can only be read:
///
///     MillisecondsSinceFrame  qlonglong  ms since the last valid frame of the gateway, or -1 when none has come since
///                                        the interface was opened, and while it is closed
///
/// Every frame with a right checksum counts, whatever it carries; a loss of the link does not restart the count. Over
/// UDP this is the only evidence that a gateway exists: `openCommunication` gives 0 and the connection state says
/// connected as soon as the local socket is bound. The interface requests the bus load every BusloadPollTime from a
/// gateway that measures it, and therefore hears from such a gateway at least that often; three polls without a frame
/// mean that it does not answer any more. A gateway that does not measure is not polled, and is silent whenever its
/// bus is.
///
/// One more property can only be read:
///
///     MillisecondsSinceFrame  qlonglong  ms since the last valid frame of the gateway, or -1 when none has come since
///                                        the interface was opened, and while it is closed
///
/// Every frame with a right checksum counts, whatever it carries; a loss of the link does not restart the count. Over
/// UDP this is the only evidence that a gateway exists: `openCommunication` gives 0 and the connection state says
/// connected as soon as the local socket is bound. The interface requests the bus load every BusloadPollTime from a
/// gateway that measures it, and therefore hears from such a gateway at least that often; three polls without a frame
/// mean that it does not answer any more. A gateway that does not measure is not polled, and is silent whenever its
/// bus is.
///
/// Settings are stored under the organisation and application name that the host gave QCoreApplication. A host that
/// gave none stores in the name of "Unknown Organization", where it may find the settings of others who forgot. The
/// stored interfaces are the groups below "CanInterfaces" in a QSettings of the host, which may be empty:
///
///     QSettings settings;
///     settings.beginGroup("CanInterfaces");
///     for (const QString& group : settings.childGroups()) {
///         names.append(CCommonInfo::uniqueNameOfSettingsGroup(group));
///     }
///
/// The order of the virtual operations is part of the contract: host and plugin are built separately.
class CIM_EXPORT CCanInterface : public QObject
{
public:
    /// Sees every message: `sending` is true for a message that is being sent (before the send, whatever its outcome),
    /// false for a received one (after it was stored). Called in the thread of the interface; the result is ignored.
    /// The message lives only for the call. The handler may close, reopen or delete the interface, and may run the
    /// event loop: messages stay in order. Until it returns nothing more is received, and a link that is lost meanwhile
    /// is neither reported nor regained: what came before the loss comes before error 0. It gets no context and may not
    /// change what it gets, so that a host which wants to act keeps a pointer of its own.
    using SpyHandler = int (*)(const CCanInterface& canInterface, bool sending, const CCanMessage& message);

    CCanInterface();
    ~CCanInterface() override;

    /// A new, closed interface with the same description, spy handler and configuration; the caller owns it. The
    /// description has this one's connection state, too, until the new interface is opened.
    virtual CCanInterface* clone() = 0;
    /// Brings the device back to a known state and restarts the bus load measurement. With `checkConnection` 1, a link
    /// that is down is refused: 109, and interface error 4. Otherwise 0, although nothing reaches the gateway while its
    /// link is down; when it is regained the requests of a new link are sent, without the reset. 2 when not open.
    virtual int resetCommunication(int checkConnection) = 0;
    /// Opens the interface and sets the bit rate of the gateway's CAN bus. May block for about a second, and runs
    /// pending events of the host. 0 when it is open; 1 when it was open already; 103 when no TCP connection came
    /// within a second, or an event closed or deleted the interface; 104 when the local address cannot be bound (UDP);
    /// 105 when the protocol is neither TCP nor UDP. It stays closed with 103 to 105.
    ///
    /// Over UDP 0 and the connection state "connected" mean that the local socket is bound, and no more: they are the
    /// same when no gateway has this address. MillisecondsSinceFrame shows whether one answers: it does so within some
    /// milliseconds, unless in the broadcast mode.
    virtual int openCommunication() = 0;
    /// Closes the interface at once and discards the messages not yet read, and those accepted for sending that did not
    /// leave yet: after a burst let the event loop run for a moment before (a second of a full bus may wait). Always 0,
    /// also when it is not open.
    virtual int closeCommunication() = 0;
    /// Takes the oldest received message. 4 when there is none, 2 when not open; `message` is then untouched. May be
    /// called from any thread. Messages carry no time, and what this interface sends is not read back: both are seen in
    /// the spy handler.
    virtual int readMessage(CCanMessage& message) = 0;
    /// Sends a message: 0 when it was handed over whole, any other code when nothing of it will be sent. 2 when not
    /// open. Identifiers are 11 bits wide; one above 0x7FF is sent as it is, and what a gateway makes of it is not
    /// defined: a host that takes identifiers from users checks them.
    virtual int writeMessage(const CCanMessage& message) = 0;
    /// The load of the CAN bus in percent of its bit rate, 0 until the first measurement. 2 when not open; `percent` is
    /// then untouched. More than 100 is possible, when the bit rate set here is below that of the bus or frames are
    /// counted longer than they are: show what is above as 100. The value stays while a gateway does not answer.
    virtual int busload(int& percent) = 0;
    /// Text of a result code, translated; empty for an unknown code. This and the other texts may be asked for from any
    /// thread.
    virtual QString errorCodeToString(int code) = 0;
    /// Long, user-facing text of an interface error, translated; empty for an unknown error.
    virtual QString interfaceErrorToString(int error) = 0;
    /// From a successful open to the close: also while a lost link is being regained.
    virtual bool isOpened() = 0;
    /// Bit rate of the CAN bus in kbit/s, as it was set here: the gateway's own is not known. 0 when opening is to
    /// leave the gateway's rate as it is.
    virtual int baudrate() = 0;
    /// Sets the bit rate in kbit/s (the T93 knows 50, 100, 125, 250, 500 and 1000; 100 at first), which the next open
    /// gives to the gateway; false when the interface is open or does not know the rate.
    virtual bool setBaudrate(int kbitPerSecond) = 0;
    /// Loads description and parameters from the settings group of this interface's unique name below `group` (below
    /// "CanInterfaces" for a null string). 7, 8 or 9, and nothing changed, when the stored values do not fit. 0, and
    /// nothing changed, when nothing is stored under this name: look it up in the store where that matters. While
    /// open, a reconnection and the next open use what was loaded, the bit rate the next open alone; but over UDP a new
    /// address and port count at once for what is sent.
    virtual int loadSettings(const QString& group) = 0;
    /// Stores description and parameters, replacing what was stored under this unique name below `group`
    /// ("CanInterfaces" for a null string). 10, and nothing written, when a parameter has no text. 0 does not tell
    /// whether the disk took it: a host that must know makes a QSettings of its own before the call (a later one may
    /// know nothing of it), and after it calls `sync` and looks at `status` there.
    virtual int saveSettings(const QString& group) = 0;
    /// Lets the user edit the parameters in a modal dialog; a `parent` may be null. The event loop runs until the user
    /// has closed it. 6, and no dialog, when the interface is open; 6, and nothing changed, when the user pressed OK
    /// but the interface has been opened meanwhile; 0 otherwise, also when the user cancelled. Deleting the interface
    /// or the parent meanwhile closes the dialog as if cancelled. A call while the dialog is up already brings it to
    /// the front and gives 0 at once. GUI thread only: the interface must live there.
    virtual int configure(QWidget* parent, Qt::WindowFlags flags) = 0;
    /// The type of the interface, for example "T93".
    virtual QString interfaceType() = 0;
    /// Sets the handler that sees every message; null removes it. Always 0.
    virtual int setSpyHandler(SpyHandler handler);
    /// The description; the reference lives as long as the interface.
    virtual const CCommonInfo& commonInfo();
    /// Replaces the description. 6, and nothing changed, when the interface is open. The T93 takes its address and port
    /// from a port text of the IP form, too, but not the protocol, and says 0 whatever stands there: a host name, or
    /// anything else that is no address, leaves it without an address (opening fails with 103, and what is saved then
    /// can never be loaded again: code 9). A port above 65535 loses its higher bits (70000 becomes 4464); one that is
    /// no number leaves the port as it was, with a Qt warning. Parts are IPv4 only, for an IPv6 address has colons of
    /// its own. Leading zeros make a part octal, as C has it (010.0.0.5 is 8.0.0.5), though not in the dialog. The
    /// properties refuse all of these.
    virtual int setCommonInfo(const CCommonInfo& info);
    /// Text of one of the common result codes 0 to 10, translated; empty for any other code.
    virtual QString commonErrorCodeToString(int code);

    /// Fills the translated texts of the common result codes (context "QObject") from the translators installed now.
    /// From any thread, also while others read the texts. A plugin does this when it is loaded, and when the host's
    /// language changes.
    static void retranslateCommonErrorStrings();

protected:
    static constexpr int COMMON_RC_COUNT = 11;

    CCommonInfo m_commonInfo;
    SpyHandler m_spyHandler;

    static const char* const m_errorCommonRcStrings[COMMON_RC_COUNT]; ///< English texts by code
    static QString m_errorCommonRcStringsTr[COMMON_RC_COUNT];         ///< translated texts, empty until retranslated
};

} // namespace vexmor::Cim

Q_DECLARE_INTERFACE(vexmor::Cim::CCanInterface, "quinmark.CCanInterface/1.0")
