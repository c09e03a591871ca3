#pragma once

#include <QDialog>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;

namespace vexmor::Apps::Cimview
{

class CInterfaceList;

/// The dialog for a new interface: name, address and bit rate; the plugin's own dialog has the rest. Stays open until
/// the interface is accepted or the user cancels.
class CAddDialog : public QDialog
{
    Q_OBJECT

public:
    CAddDialog(CInterfaceList& interfaces, QWidget* parent);

    void accept() override;

private:
    CInterfaceList& m_interfaces;
    QLineEdit* m_name;
    QLineEdit* m_address;
    QComboBox* m_baudrate;
    QCheckBox* m_keep;
    QLabel* m_problem;
};

/// Fills a box with the bit rates of a CAN bus, each with its value in the store as data; the gateway's own is the
/// first.
void fillWithBitRates(QComboBox& box);

} // namespace vexmor::Apps::Cimview
