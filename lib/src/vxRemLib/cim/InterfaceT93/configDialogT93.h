#pragma once

#include "InterfaceT93/configParamT93.h"

#include <QDialog>

class QCheckBox;
class QComboBox;
class QDialogButtonBox;
class QGridLayout;
class QLabel;
class QLineEdit;
class QSpinBox;
class QVBoxLayout;

namespace vexmor::Cim
{

/// The modal dialog in which a user edits the settings of one T93 gateway. Run once with `exec`; when that gives
/// `QDialog::Accepted`, `configParam` gives what was entered. It knows neither sockets nor the settings store: what
/// becomes of the result is its caller's business. GUI thread only.
///
/// OK checks the port (0 to 65535) and the four parts (0 to 255) of both addresses. What is wrong is told in one
/// message box, a line for each field, and the dialog stays open with what the user typed. Nothing else is checked: any
/// integer is taken as a baud rate. Cancel, Escape and the close button discard everything without a question.
///
/// Its texts follow the language of the application while it is open. Every field can be edited at all times. DHCP flag
/// and MAC address are not shown; the result has them reset.
class CConfigDialogT93 : public QDialog
{
    Q_OBJECT

public:
    /// Shows the values of `param`. Bus load times are held within 100 to 3000 ms; a socket mode or protocol without an
    /// entry shows the first one; a baud rate without an entry leaves the field empty.
    CConfigDialogT93(const CConfigParamT93& param, QWidget* parent, Qt::WindowFlags flags);
    ~CConfigDialogT93() override;

    /// A new record of what the fields hold now; may be called any number of times. What is no number leaves the
    /// record's default (port 30000, 100 kbit/s). Leading zeros of an address mean nothing: 010 is 10.
    CConfigParamT93 configParam() const;

public Q_SLOTS:
    // What the buttons do. They hide the signals of these names: connect to those as &QDialog::accepted.
    /// Closes with `QDialog::Accepted` when the values are good.
    void accepted();
    /// Closes with `QDialog::Rejected`.
    void rejected();

protected:
    void changeEvent(QEvent* event) override;

private:
    void setupUi();
    void createFields();
    void retranslateUi();
    /// False, after a message box, when port or addresses are not good. The dialog may be gone then.
    bool checkValues();
    /// Appends a line to `message`, and clears `ok`, when `address` is not good.
    static void checkIpAddress(const QString& label, const QString& address, QString& message, bool& ok);

    const CConfigParamT93 m_configParam; ///< the values at first

    // Owned by the tree of the dialog's objects.
    QVBoxLayout* m_mainLayout = nullptr;
    QDialogButtonBox* m_buttonBox = nullptr;
    QGridLayout* m_gridLayout = nullptr;

    QLabel* m_hostNameLabel = nullptr;
    QLabel* m_socketModeLabel = nullptr;
    QLabel* m_protocolTypeLabel = nullptr;
    QLabel* m_ipAddressLabel = nullptr;
    QLabel* m_portLabel = nullptr;
    QLabel* m_autoIpUpdateLabel = nullptr;
    QLabel* m_localIpAddressLabel = nullptr;
    QLabel* m_udpBindAnyIpLabel = nullptr;
    QLabel* m_canBaudrateLabel = nullptr;
    QLabel* m_busloadPollTimeLabel = nullptr;
    QLabel* m_busloadMeasureIntervalLabel = nullptr;

    QLineEdit* m_hostNameEdit = nullptr;
    QLineEdit* m_ipAddressEdit = nullptr;
    QLineEdit* m_portEdit = nullptr;
    QLineEdit* m_localIpAddressEdit = nullptr;
    QComboBox* m_socketModeCombo = nullptr;
    QComboBox* m_protocolTypeCombo = nullptr;
    QComboBox* m_canBaudrateCombo = nullptr;
    QSpinBox* m_busloadPollTimeSpin = nullptr;
    QSpinBox* m_busloadMeasureIntervalSpin = nullptr;
    QCheckBox* m_autoIpUpdateCheck = nullptr;
    QCheckBox* m_udpBindAnyIpCheck = nullptr;
};

} // namespace vexmor::Cim
