#pragma once

#include "apps/host/interfaceStore.h"

#include <QDialog>

#include <functional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;

namespace vexmor::Apps::Cimview
{

/// The dialog for a new interface: name, address and bit rate; the plugin's own dialog has the rest. Stays open until
/// the interface is accepted or the user cancels.
class CAddDialog : public QDialog
{
    Q_OBJECT

public:
    /// Adds the interface; returns what is wrong with it.
    using Accept = std::function<Failure(const QString& name, const Settings& settings, bool keep)>;

    CAddDialog(Accept accept, QWidget* parent);

    void accept() override;

private:
    const Accept m_accept;
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
