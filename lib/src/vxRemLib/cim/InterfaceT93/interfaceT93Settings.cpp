// The settings of the interface: bit rate, description, store, dialog and properties.
#include "InterfaceT93/configDialogT93.h"
#include "InterfaceT93/hostCall.h"
#include "InterfaceT93/interfaceT93.h"
#include "cim/resultCodes.h"

#include <QApplication>

#include <limits>

namespace vexmor::Cim
{
namespace
{
const QString DEFAULT_GROUP = QStringLiteral("CanInterfaces");
constexpr char IPV4_RULE[] = "must be an IPv4 address like 192.168.1.70, without leading zeros";

/// Returns a number converted to the type of its parameter; nothing for a number that this type cannot hold.
template <typename Number>
std::optional<Number> inRange(qlonglong number)
{
    const bool fits = number >= 0 && number <= qlonglong{std::numeric_limits<Number>::max()};
    return fits ? std::optional<Number>(static_cast<Number>(number)) : std::nullopt;
}

/// Reads an IPv4 address of four decimal numbers; returns nothing for other forms that Qt would read: "10.5",
/// "010.0.0.5" (octal), and IPv6, which a port text cannot hold.
std::optional<QHostAddress> ipv4Address(const QString& text)
{
    const QHostAddress address(text);
    const bool fits = address.protocol() == QAbstractSocket::IPv4Protocol && address.toString() == text;
    return fits ? std::optional<QHostAddress>(address) : std::nullopt;
}

/// Returns the enumerator whose text is given; nothing for any other text.
template <typename Enum>
std::optional<Enum> oneOf(const QString& text, const char* firstText, Enum first, const char* secondText, Enum second)
{
    return text == QLatin1String(firstText)    ? std::optional<Enum>(first)
           : text == QLatin1String(secondText) ? std::optional<Enum>(second)
                                               : std::nullopt;
}
} // namespace

bool CInterfaceT93::isOpened()
{
    return m_link != nullptr;
}

int CInterfaceT93::baudrate()
{
    return static_cast<int>(m_configParam.canBaudrate());
}

bool CInterfaceT93::setBaudrate(int kbitPerSecond)
{
    if (isOpened()) {
        return false;
    }
    if (kbitPerSecond < 0 || !rmBaudrateCode(static_cast<std::uint32_t>(kbitPerSecond))) {
        qWarning("Unsupportd baudrate: %d kbaud", kbitPerSecond);
        return false;
    }
    m_configParam.setCanBaudrate(static_cast<std::uint32_t>(kbitPerSecond));
    return true;
}

int CInterfaceT93::loadSettings(const QString& group)
{
    CCommonInfo info = m_commonInfo;
    const int code = m_configParam.loadSettings(group.isNull() ? DEFAULT_GROUP : group, info);
    if (code == RC_OK) {
        m_commonInfo = info;
    }
    return code;
}

int CInterfaceT93::saveSettings(const QString& group)
{
    return m_configParam.saveSettings(group.isNull() ? DEFAULT_GROUP : group, m_commonInfo);
}

int CInterfaceT93::configure(QWidget* parent, Qt::WindowFlags flags)
{
    if (isOpened()) {
        return RC_NO_CHANGE_WHILE_OPEN;
    }
    // No dialog is shown without a QApplication: Qt would end the program.
    if (qobject_cast<QApplication*>(QCoreApplication::instance()) == nullptr) {
        qWarning("%s: no dialog without a QApplication.", "vexmor::Cim::CInterfaceT93::configure");
        return RC_OK;
    }
    if (m_configDialog) {
        m_configDialog->raise();
        m_configDialog->activateWindow();
        return RC_OK;
    }
    // Events are processed while the dialog is shown, and may delete this interface or the parent, which deletes the
    // dialog. The dialog is therefore on the heap: on the stack it would be deleted twice.
    const CHostCall call(*this);
    const QPointer<CConfigDialogT93> dialog = new CConfigDialogT93(m_configParam, parent, flags);
    m_configDialog = dialog.data();
    dialog->setModal(true);
    const bool isAccepted = dialog->exec() == QDialog::Accepted && dialog;
    const CConfigParamT93 param = isAccepted ? dialog->configParam() : CConfigParamT93();
    delete dialog.data();
    if (!isAccepted || !call.isOwnerAlive()) {
        return RC_OK;
    }
    if (isOpened()) { // an event opened it while the dialog was shown
        return RC_NO_CHANGE_WHILE_OPEN;
    }
    m_configParam = param;
    updatePortText();
    return RC_OK;
}

int CInterfaceT93::setCommonInfo(const CCommonInfo& info)
{
    const int code = CCanInterface::setCommonInfo(info);
    if (code != RC_OK) {
        return code;
    }
    QString address;
    QString portText;
    if (m_commonInfo.ipAddress(address, portText)) {
        m_configParam.setIpAddress(QHostAddress(address));
        bool ok = false;
        const unsigned int port = portText.toUInt(&ok, 10);
        if (ok) {
            m_configParam.setPort(static_cast<std::uint16_t>(port));
        } else {
            qWarning("%s: convert IP port string to uint failed.", "vexmor::Cim::CInterfaceT93::setCommonInfo");
        }
    }
    return RC_OK;
}

CConfigParamT93 CInterfaceT93::configParam()
{
    return m_configParam;
}

void CInterfaceT93::setConfigParam(const CConfigParamT93& param)
{
    m_configParam = param;
}

void CInterfaceT93::updatePortText()
{
    m_commonInfo.setPort(m_configParam.ipPortString());
}

// ---- Properties ----

QString CInterfaceT93::protocolProperty() const
{
    bool ok = false;
    return m_configParam.protocolTypeString(ok);
}

QString CInterfaceT93::serviceProperty() const
{
    bool ok = false;
    return m_configParam.serviceTypeString(ok);
}

template <typename Value, typename Argument>
bool CInterfaceT93::setParam(const char* property, const QString& text, const std::optional<Value>& value,
                             const char* rule, void (CConfigParamT93::*setter)(Argument))
{
    const char* const objection = isOpened() ? "not while the interface is open" : value ? nullptr : rule;
    if (objection != nullptr) {
        qWarning("vexmor::Cim::CInterfaceT93: %s %s: %s.", property, qPrintable(text), objection);
        return false;
    }
    (m_configParam.*setter)(*value);
    return true;
}

void CInterfaceT93::setHostnameProperty(const QString& hostname)
{
    setParam("Hostname", hostname, std::optional<QString>(hostname), "", &CConfigParamT93::setHostname);
}

void CInterfaceT93::setIpAddressProperty(const QString& address)
{
    if (setParam("IPAddress", address, ipv4Address(address), IPV4_RULE, &CConfigParamT93::setIpAddress)) {
        updatePortText();
    }
}

void CInterfaceT93::setPortProperty(qlonglong port)
{
    if (setParam("Port", QString::number(port), inRange<std::uint16_t>(port), "must be 0 to 65535",
                 &CConfigParamT93::setPort)) {
        updatePortText();
    }
}

void CInterfaceT93::setProtocolProperty(const QString& protocol)
{
    if (setParam("Protocol", protocol,
                 oneOf(protocol, "TCP", CCommonInfo::eProtocolTcp, "UDP", CCommonInfo::eProtocolUdp),
                 "must be TCP or UDP", &CConfigParamT93::setProtocolType)) {
        updatePortText();
    }
}

void CInterfaceT93::setServiceProperty(const QString& service)
{
    setParam("Service", service,
             oneOf(service, "SERVER", CConfigParamT93::eServiceServer, "CLIENT", CConfigParamT93::eServiceClient),
             "must be SERVER or CLIENT", &CConfigParamT93::setServiceType);
}

void CInterfaceT93::setLocalIpAddressProperty(const QString& address)
{
    setParam("LocalIPAddress", address, ipv4Address(address), IPV4_RULE, &CConfigParamT93::setLocalIpAddress);
}

void CInterfaceT93::setUdpBindAnyIpProperty(bool bindAny)
{
    setParam("UdpBindAnyIp", QString::number(bindAny), std::optional<bool>(bindAny), "",
             &CConfigParamT93::setUdpBindAnyIp);
}

void CInterfaceT93::setAutoIpUpdateProperty(bool update)
{
    setParam("AutoIpUpdate", QString::number(update), std::optional<bool>(update), "",
             &CConfigParamT93::setAutoIpUpdate);
}

void CInterfaceT93::setBusloadPollTimeProperty(qlonglong milliseconds)
{
    setParam("BusloadPollTime", QString::number(milliseconds), inRange<std::uint32_t>(milliseconds),
             "must be 0 to 4294967295", &CConfigParamT93::setBusloadPollTime);
}

void CInterfaceT93::setBusloadMeasureIntervalProperty(qlonglong milliseconds)
{
    setParam("BusloadMeasureInterval", QString::number(milliseconds), inRange<std::uint16_t>(milliseconds),
             "must be 0 to 65535", &CConfigParamT93::setBusloadMeasureInterval);
}

void CInterfaceT93::setCanBaudrateProperty(qlonglong kbitPerSecond)
{
    std::optional<std::uint32_t> rate = inRange<std::uint32_t>(kbitPerSecond);
    if (rate && *rate != 0 && !rmBaudrateCode(*rate)) {
        rate.reset();
    }
    setParam("CanBaudrate", QString::number(kbitPerSecond), rate, "must be 50, 100, 125, 250, 500, 1000, or 0",
             &CConfigParamT93::setCanBaudrate);
}

} // namespace vexmor::Cim
