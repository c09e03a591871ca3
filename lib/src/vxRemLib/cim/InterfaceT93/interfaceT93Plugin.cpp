#include "InterfaceT93/interfaceT93Plugin.h"

#include "InterfaceT93/interfaceT93.h"

namespace vexmor::Cim
{

CInterfaceT93Plugin::CInterfaceT93Plugin()
{
    CInterfaceT93::retranslateErrorStrings();
}

QString CInterfaceT93Plugin::pluginName()
{
    return QStringLiteral("InterfaceT93Plugin");
}

int CInterfaceT93Plugin::pluginId()
{
    return 1;
}

QString CInterfaceT93Plugin::interfaceType()
{
    return QStringLiteral("T93");
}

CCanInterface* CInterfaceT93Plugin::createInterface()
{
    return new CInterfaceT93;
}

bool CInterfaceT93Plugin::addScanAddress(const QString& address)
{
    QHostAddress host;
    if (!host.setAddress(address)) {
        return false;
    }
    if (!m_scanAddresses.contains(host)) {
        m_scanAddresses.append(host);
    }
    return true;
}

bool CInterfaceT93Plugin::removeScanAddress(const QString& address)
{
    QHostAddress host;
    return host.setAddress(address) && m_scanAddresses.removeOne(host);
}

QStringList CInterfaceT93Plugin::scanAddresses()
{
    QStringList addresses;
    for (const QHostAddress& host : std::as_const(m_scanAddresses)) {
        addresses.append(host.toString());
    }
    return addresses;
}

int CInterfaceT93Plugin::scanInterfaces()
{
    return -1;
}

void CInterfaceT93Plugin::deviceDetectionThreadFinished() {}

} // namespace vexmor::Cim

const char* canInterfaceLibIdent()
{
    return "vex CAN Interface Library for T93";
}
