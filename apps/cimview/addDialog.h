#pragma once

#include <QString>
#include <QVector>

#include <utility>

class QWidget;

namespace vexmor::Apps::Cimview
{

class CInterfaceList;

/// Runs the dialog for a new interface: name, address and bit rate; the plugin's own dialog has the rest. Returns true
/// when the interface was added, false when the user cancelled.
bool runAddDialog(CInterfaceList& interfaces, QWidget* parent);

/// The bit rates of a CAN bus as the store has them, each with its text for the user; the gateway's own is the first.
QVector<std::pair<QString, QString>> bitRateTexts();

} // namespace vexmor::Apps::Cimview
