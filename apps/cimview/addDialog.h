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

/// Returns the bit rates of a CAN bus, in the form of the store, each with its text for the user. The first one leaves
/// the rate unchanged.
QVector<std::pair<QString, QString>> bitRateTexts();

} // namespace vexmor::Apps::Cimview
