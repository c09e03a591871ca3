#pragma once

#include "apps/host/interfaceSettings.h"

#include <QString>

/// What the programs on this window do before it shows.
namespace vexmor::Apps::Cimview
{

class CInterfaceList;

/// Names the organisation and the application, and asks for sharp pixels. Before the application is made.
void prepareApplication();
/// Opens a stored interface by its name, or adds and opens an address, with a bus of this bit rate.
Failure openTarget(CInterfaceList& interfaces, const QString& target, const QString& bitRate = GATEWAYS_BIT_RATE);

} // namespace vexmor::Apps::Cimview
