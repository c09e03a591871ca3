#pragma once

#include "apps/common/interfaceSettings.h"

#include <QString>

/// What the programs on this window do before it shows.
namespace vexmor::Apps
{
class CEmbeddedSim;
}

namespace vexmor::Apps::Cimview
{

class CInterfaceList;

/// Names the organisation and the application, and asks for sharp pixels. Before the application is made.
void prepareApplication();
/// Puts a simulated gateway that is started into the list, over both of its transports, and opens the first.
Failure openSim(CInterfaceList& interfaces, CEmbeddedSim& sim);
/// Opens a stored interface by its name, or adds and opens an address, with a bus of this bit rate.
Failure openTarget(CInterfaceList& interfaces, const QString& target, const QString& bitRate = GATEWAYS_BIT_RATE);

} // namespace vexmor::Apps::Cimview
