#pragma once

#include "apps/host/interfaceSettings.h"

#include <QString>

/// What every program with this window does before it shows the window.
namespace vexmor::Apps::Cimview
{

class CInterfaceList;

/// Sets the names of organisation and application, and full resolution on dense screens. Before the application is
/// made.
void prepareApplication();
/// Opens a stored interface by its name, or adds and opens an address, with a bus of this bit rate.
Failure openTarget(CInterfaceList& interfaces, const QString& target, const QString& bitRate = GATEWAYS_BIT_RATE);

} // namespace vexmor::Apps::Cimview
