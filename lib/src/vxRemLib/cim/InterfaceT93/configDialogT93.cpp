#include "InterfaceT93/configDialogT93.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFocusEvent>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QSpinBox>
#include <QStringList>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

namespace vexmor::Cim
{
namespace
{
constexpr int MAX_HOST_NAME_LENGTH = 28;
constexpr int MAX_PORT = 65535;
constexpr int ADDRESS_PARTS = 4;
constexpr int MAX_ADDRESS_PART = 255;
constexpr std::uint32_t MIN_BUSLOAD_MS = 100;
constexpr std::uint32_t MAX_BUSLOAD_MS = 3000;
constexpr std::uint32_t BAUDRATES[] = {50, 100, 125, 250, 500, 1000}; // in kbit/s
constexpr CConfigParamT93::EServiceType SERVICES[] = {CConfigParamT93::eServiceClient, CConfigParamT93::eServiceServer};
constexpr CCommonInfo::EProtocolType PROTOCOLS[] = {CCommonInfo::eProtocolTcp, CCommonInfo::eProtocolUdp};

const QString ADDRESS_MASK = QStringLiteral("000.000.000.000");
const QString PORT_MASK = QStringLiteral("00000;");
const QChar DOT = QLatin1Char('.');

/// Selects the text of a line edit with a mask when the user enters it with the Tab key, as Qt does for edits without a
/// mask. Otherwise typing 10.0.0.5 over 192.168.1.70 would keep old digits in between: 102.068.0.50.
class CSelectOnTab : public QObject
{
public:
    using QObject::QObject;

private:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::FocusIn) {
            const Qt::FocusReason reason = static_cast<QFocusEvent*>(event)->reason();
            if (reason == Qt::TabFocusReason || reason == Qt::BacktabFocusReason) {
                // The selection is delayed, because the edit itself moves the cursor after this event.
                QTimer::singleShot(0, static_cast<QLineEdit*>(watched), &QLineEdit::selectAll);
            }
        }
        return false;
    }
};

QLineEdit* makeMaskedEdit(const QString& mask, const QString& text)
{
    auto* const edit = new QLineEdit;
    edit->setInputMask(mask);
    edit->setText(text);
    edit->setMinimumWidth(edit->sizeHint().width()); // a whole address must fit, although the dialog is small at first
    edit->installEventFilter(new CSelectOnTab(edit));
    return edit;
}

QCheckBox* makeCheck(bool checked)
{
    auto* const check = new QCheckBox;
    check->setChecked(checked);
    return check;
}

QSpinBox* makeBusloadSpin(std::uint32_t milliseconds)
{
    auto* const spin = new QSpinBox;
    spin->setRange(MIN_BUSLOAD_MS, MAX_BUSLOAD_MS);
    spin->setSingleStep(1);
    // The value is limited before the conversion to int, which would make a huge value negative.
    spin->setValue(static_cast<int>(std::clamp(milliseconds, MIN_BUSLOAD_MS, MAX_BUSLOAD_MS)));
    return spin;
}

/// Returns a combo box with the texts of some enumerators. For a value that is not among them, it shows the first.
template <typename Enum, std::size_t COUNT, typename ToStr>
QComboBox* makeEnumCombo(const Enum (&values)[COUNT], Enum current, const QString& unknown, ToStr&& toStr)
{
    auto* const combo = new QComboBox;
    for (const Enum value : values) {
        QString text;
        combo->addItem(toStr(value, text) ? text : unknown);
        if (value == current) {
            combo->setCurrentIndex(combo->count() - 1);
        }
    }
    return combo;
}

QComboBox* makeBaudrateCombo(std::uint32_t baudrate)
{
    auto* const combo = new QComboBox;
    combo->setEditable(true);
    combo->setCompleter(nullptr); // 5 must not become 50 while the user types
    for (const std::uint32_t entry : BAUDRATES) {
        combo->addItem(QString::number(entry));
    }
    combo->setCurrentIndex(combo->findText(QString::number(baudrate))); // stays empty for a rate without an entry
    return combo;
}

/// Returns the address with each part read as a decimal number; QHostAddress would read 010 as an octal one.
QHostAddress addressOf(const QString& text)
{
    QStringList parts = text.split(DOT);
    for (QString& part : parts) {
        bool ok = false;
        const int number = part.toInt(&ok, 10);
        if (ok) {
            part = QString::number(number);
        }
    }
    return QHostAddress(parts.join(DOT));
}

void appendLine(QString& message, const QString& line)
{
    if (!message.isEmpty()) {
        message += QLatin1Char('\n');
    }
    message += line;
}
} // namespace

CConfigDialogT93::CConfigDialogT93(const CConfigParamT93& param, QWidget* parent, Qt::WindowFlags flags)
    : QDialog(parent, flags), m_configParam(param)
{
    setupUi();
    retranslateUi();
}

CConfigDialogT93::~CConfigDialogT93() = default;

void CConfigDialogT93::setupUi()
{
    resize(300, 200);
    if (objectName().isEmpty()) {
        setObjectName(QStringLiteral("CConfigDialogT93"));
    }
    m_mainLayout = new QVBoxLayout;
    m_mainLayout->setSpacing(6);
    m_mainLayout->setContentsMargins(9, 9, 9, 9);
    m_mainLayout->setObjectName(QStringLiteral("dialogMainVBoxLayout"));
    m_buttonBox = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    m_gridLayout = new QGridLayout;

    createFields();

    // The Tab key follows the rows, since the layout adopts the fields in this order.
    auto addRow = [this, row = 0](QLabel*& label, QWidget* field) mutable {
        label = new QLabel;
        label->setBuddy(field); // a screen reader names the field by it
        m_gridLayout->addWidget(label, row, 0);
        m_gridLayout->addWidget(field, row, 1);
        ++row;
    };
    addRow(m_hostNameLabel, m_hostNameEdit);
    addRow(m_socketModeLabel, m_socketModeCombo);
    addRow(m_protocolTypeLabel, m_protocolTypeCombo);
    addRow(m_ipAddressLabel, m_ipAddressEdit);
    addRow(m_autoIpUpdateLabel, m_autoIpUpdateCheck);
    addRow(m_portLabel, m_portEdit);
    addRow(m_localIpAddressLabel, m_localIpAddressEdit);
    addRow(m_udpBindAnyIpLabel, m_udpBindAnyIpCheck);
    addRow(m_canBaudrateLabel, m_canBaudrateCombo);
    addRow(m_busloadPollTimeLabel, m_busloadPollTimeSpin);
    addRow(m_busloadMeasureIntervalLabel, m_busloadMeasureIntervalSpin);
    m_mainLayout->addLayout(m_gridLayout);
    m_mainLayout->addStretch(1);
    m_mainLayout->addWidget(m_buttonBox);
    setLayout(m_mainLayout);

    connect(m_buttonBox, &QDialogButtonBox::accepted, this, &CConfigDialogT93::accepted);
    connect(m_buttonBox, &QDialogButtonBox::rejected, this, &CConfigDialogT93::rejected);
}

void CConfigDialogT93::createFields()
{
    m_hostNameEdit = new QLineEdit;
    m_hostNameEdit->setMaxLength(MAX_HOST_NAME_LENGTH);
    m_hostNameEdit->setText(m_configParam.hostname());
    m_socketModeCombo =
        makeEnumCombo(SERVICES, m_configParam.serviceType(), tr("unknown"), CConfigParamT93::serviceEnumToStr);
    m_protocolTypeCombo =
        makeEnumCombo(PROTOCOLS, m_configParam.protocolType(), tr("unknown"), CCommonInfo::protocolEnumToStr);
    m_ipAddressEdit = makeMaskedEdit(ADDRESS_MASK, m_configParam.ipAddress().toString());
    m_autoIpUpdateCheck = makeCheck(m_configParam.autoIpUpdate());
    m_portEdit = makeMaskedEdit(PORT_MASK, QString::number(m_configParam.port()));
    m_localIpAddressEdit = makeMaskedEdit(ADDRESS_MASK, m_configParam.localIpAddress().toString());
    m_udpBindAnyIpCheck = makeCheck(m_configParam.udpBindAnyIp());
    m_canBaudrateCombo = makeBaudrateCombo(m_configParam.canBaudrate());
    m_busloadPollTimeSpin = makeBusloadSpin(m_configParam.busloadPollTime());
    m_busloadMeasureIntervalSpin = makeBusloadSpin(m_configParam.busloadMeasureInterval());
}

void CConfigDialogT93::retranslateUi()
{
    setWindowTitle(tr("T93 configuration dialog"));
    m_hostNameLabel->setText(tr("Host Name"));
    m_socketModeLabel->setText(tr("Socket Mode"));
    m_protocolTypeLabel->setText(tr("Protocol Type"));
    m_ipAddressLabel->setText(tr("IP Address"));
    m_portLabel->setText(tr("Port Number"));
    m_autoIpUpdateLabel->setText(tr("Auto IP update"));
    m_localIpAddressLabel->setText(tr("Local IP Address"));
    m_udpBindAnyIpLabel->setText(tr("UDP receive any IP Address"));
    m_canBaudrateLabel->setText(tr("CAN Baudrate [kbit/s]"));
    m_busloadPollTimeLabel->setText(tr("Busload poll time [ms]"));
    m_busloadMeasureIntervalLabel->setText(tr("Busload measure interval [ms]"));

    m_localIpAddressEdit->setToolTip(
        tr("IP address of the PC network interface where the T93 is attached.\nUsed for UDP mode."));
    m_udpBindAnyIpCheck->setToolTip(
        tr("Used only for UDP mode. If this option is enabled we can receive UDP messages from any T93\n"
           "because any IP address in the UDP packet is accepted."));
    m_autoIpUpdateCheck->setToolTip(
        tr("If the T93 is used in DHCP mode then it will automatically get an IP address from the DHCP server. If "
           "'Auto IP update' is set then the new IP address after a restart will be automatically taken over."));
}

void CConfigDialogT93::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange) {
        retranslateUi();
    }
    QDialog::changeEvent(event);
}

void CConfigDialogT93::accepted()
{
    if (checkValues()) {
        done(QDialog::Accepted);
    }
}

void CConfigDialogT93::rejected()
{
    done(QDialog::Rejected);
}

bool CConfigDialogT93::checkValues()
{
    bool ok = true;
    QString message;

    bool isNumber = false;
    const int port = m_portEdit->text().toInt(&isNumber, 10);
    if (!isNumber || port > MAX_PORT) {
        ok = false;
        appendLine(message,
                   tr("%1: %2 not in valid range (min: %3, max: %4)")
                       .arg(m_portLabel->text(), QString::number(port), QString::number(0), QString::number(MAX_PORT)));
    }
    checkIpAddress(m_ipAddressLabel->text(), m_ipAddressEdit->text(), message, ok);
    checkIpAddress(m_localIpAddressLabel->text(), m_localIpAddressEdit->text(), message, ok);

    if (!ok) {
        QMessageBox box(QMessageBox::Warning, QString(), message, QMessageBox::Ok);
        box.setTextFormat(Qt::PlainText); // otherwise the < and > in the lines might be read as HTML
        // The box closes with the dialog: the caller of the dialog would otherwise wait for the box.
        connect(this, &QDialog::finished, &box, &QDialog::reject);
        connect(this, &QObject::destroyed, &box, &QDialog::reject);
        box.exec(); // the dialog may be deleted meanwhile
    }
    return ok;
}

void CConfigDialogT93::checkIpAddress(const QString& label, const QString& address, QString& message, bool& ok)
{
    bool good = true;
    QStringList parts;
    for (int index = 0; index < ADDRESS_PARTS; ++index) {
        bool isNumber = false;
        const int number = address.section(DOT, index, index).toInt(&isNumber, 10);
        if (isNumber && number <= MAX_ADDRESS_PART) {
            parts.append(QString::number(number));
        } else {
            good = false;
            parts.append(QStringLiteral(">%1<").arg(number));
        }
    }
    if (good) {
        return;
    }
    ok = false;
    appendLine(message, label + QStringLiteral(": ") + parts.join(DOT) +
                            tr(" not in valid range (min: %4, max: %5)").arg(0).arg(MAX_ADDRESS_PART));
}

CConfigParamT93 CConfigDialogT93::configParam() const
{
    CConfigParamT93 param;
    param.setHostname(m_hostNameEdit->text());
    const int service = m_socketModeCombo->currentIndex();
    if (service >= CConfigParamT93::eServiceClient && service <= CConfigParamT93::eServiceInvalid) {
        param.setServiceType(static_cast<CConfigParamT93::EServiceType>(service));
    }
    switch (m_protocolTypeCombo->currentIndex()) {
    case CCommonInfo::eProtocolTcp:
        param.setProtocolType(CCommonInfo::eProtocolTcp);
        break;
    case CCommonInfo::eProtocolUdp:
        param.setProtocolType(CCommonInfo::eProtocolUdp);
        break;
    default:
        param.setProtocolType(CCommonInfo::eProtocolInvalid);
        break;
    }
    param.setIpAddress(addressOf(m_ipAddressEdit->text()));
    bool ok = false;
    const int port = m_portEdit->text().toInt(&ok, 10);
    if (ok) {
        param.setPort(static_cast<std::uint16_t>(port));
    }
    param.setLocalIpAddress(addressOf(m_localIpAddressEdit->text()));
    param.setUdpBindAnyIp(m_udpBindAnyIpCheck->isChecked());
    param.setAutoIpUpdate(m_autoIpUpdateCheck->isChecked());
    param.setBusloadPollTime(static_cast<std::uint32_t>(m_busloadPollTimeSpin->value()));
    param.setBusloadMeasureInterval(static_cast<std::uint16_t>(m_busloadMeasureIntervalSpin->value()));
    const int baudrate = m_canBaudrateCombo->currentText().toInt(&ok, 10);
    if (ok) {
        param.setCanBaudrate(static_cast<std::uint32_t>(baudrate));
    }
    return param;
}

} // namespace vexmor::Cim
