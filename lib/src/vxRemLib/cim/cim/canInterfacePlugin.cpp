#include "cim/canInterfacePlugin.h"

namespace vexmor::Cim
{

CCanInterfacePlugin::CCanInterfacePlugin() = default;
CCanInterfacePlugin::CCanInterfacePlugin(const CCanInterfacePlugin& /*other*/) = default;
CCanInterfacePlugin& CCanInterfacePlugin::operator=(const CCanInterfacePlugin& /*other*/) = default;
CCanInterfacePlugin::~CCanInterfacePlugin() = default;

} // namespace vexmor::Cim
