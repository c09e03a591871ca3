#pragma once

class QComboBox;
class QWidget;

namespace vexmor::Apps::Cimview
{

class CInterfaceList;

/// Runs the dialog for a new interface: name, address and bit rate; the plugin's own dialog has the rest. Returns true
/// when the interface was added, false when the user cancelled.
bool runAddDialog(CInterfaceList& interfaces, QWidget* parent);

/// Fills a box with the bit rates of a CAN bus, each with its value in the store as data; the gateway's own is the
/// first.
void fillWithBitRates(QComboBox& box);

} // namespace vexmor::Apps::Cimview
