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

/// The modal dialog in which a user edits the settings of one T93 gateway. Run it once with `exec`; if that returns
/// `QDialog::Accepted`, `configParam` returns the values entered. The dialog does not apply these values itself. GUI
/// thread only.
///
/// OK checks the port (0 to 65535) and the four parts (0 to 255) of both addresses. A message box lists the faults, one
/// line per field, and the dialog stays open with the user's input. Other fields are not checked; any integer is
/// accepted as a baud rate. Cancel, Escape and the close button discard the input without confirmation.
///
/// The texts follow the language of the application while the dialog is open. DHCP flag and MAC address are not shown;
/// `configParam` returns default values for them.
class CConfigDialogT93 : public QDialog
{
    Q_OBJECT

public:
    /// Shows the values of `param`. Bus load times are limited to 100 to 3000 ms; for a socket mode or protocol without
    /// an entry the first entry is shown; for a baud rate without an entry the field is empty.
    CConfigDialogT93(const CConfigParamT93& param, QWidget* parent, Qt::WindowFlags flags);
    ~CConfigDialogT93() override;

    /// Returns the present values of the fields. A port or baud rate that is no number counts as the default (30000,
    /// 100 kbit/s). Leading zeros in an address are ignored: 010 is 10.
    CConfigParamT93 configParam() const;

public Q_SLOTS:
    // The actions of the buttons. They hide the signals of the same names: connect to those as &QDialog::accepted.
    /// Closes the dialog with `QDialog::Accepted` if the values are valid.
    void accepted();
    /// Closes the dialog with `QDialog::Rejected`.
    void rejected();

protected:
    void changeEvent(QEvent* event) override;

private:
    void setupUi();
    void createFields();
    void retranslateUi();
    /// Returns whether port and addresses are valid. Otherwise it shows a message box first, during which the dialog
    /// may be deleted.
    bool checkValues();
    /// Appends a line to `message` and clears `ok` if `address` is invalid.
    static void checkIpAddress(const QString& label, const QString& address, QString& message, bool& ok);

    const CConfigParamT93 m_configParam; ///< Values that the dialog shows at first.

    // The dialog owns the following objects as their parent.
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
