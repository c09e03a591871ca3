#pragma once

#include <QString>
#include <QVector>

#include <utility>

class QWidget;

namespace vexmor::Apps::Cimview
{

class CInterfaceList;

/// Runs the dialog for a new interface: name, address and bit rate. All other settings are in the plugin's dialog.
/// Returns true when the interface was added, false when the user cancelled.
bool runAddDialog(CInterfaceList& interfaces, QWidget* parent);

/// Returns the bit rates of a CAN bus, each as it is stored, in kbit/s, and as a text for the user. The first rate, 0,
/// stands for an unchanged rate.
QVector<std::pair<QString, QString>> bitRateTexts();

} // namespace vexmor::Apps::Cimview
