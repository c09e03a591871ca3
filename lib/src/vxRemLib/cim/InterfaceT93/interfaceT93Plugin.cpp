#include "InterfaceT93/interfaceT93Plugin.h"

#include "InterfaceT93/interfaceT93.h"

#include <QCoreApplication>
#include <QEvent>
#include <QThread>

namespace vexmor::Cim
{

CInterfaceT93Plugin::CInterfaceT93Plugin()
{
    CInterfaceT93::retranslateErrorStrings();
    // Qt takes event filters of the application from its own thread only.
    QCoreApplication* const application = QCoreApplication::instance();
    if (application != nullptr && application->thread() == thread()) {
        application->installEventFilter(this);
    }
}

bool CInterfaceT93Plugin::eventFilter(QObject* watched, QEvent* event)
{
    // As a filter of the application it sees the events of every object: the type tells nearly all of them apart.
    if (event->type() == QEvent::LanguageChange && watched == QCoreApplication::instance()) {
        CInterfaceT93::retranslateErrorStrings();
    }
    return false;
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
