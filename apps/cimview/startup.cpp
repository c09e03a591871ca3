#include "apps/cimview/startup.h"

#include "apps/cimview/interfaceList.h"
#include "apps/cimview/mainWindow.h"
#include "apps/host/gatewayAddress.h"

#include <QApplication>

namespace vexmor::Apps::Cimview
{

void prepareApplication()
{
    QCoreApplication::setOrganizationName(QStringLiteral("Vexmor"));
    QCoreApplication::setApplicationName(QStringLiteral("Cim"));
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
}

Failure openTarget(CInterfaceList& interfaces, const QString& target, const QString& bitRate)
{
    if (interfaces.rowOf(target) < 0) {
        if (!isAddress(target)) {
            return wrongUsage(
                CMainWindow::tr("'%1' is no stored interface, and no address like 192.168.1.70:30000:TCP").arg(target));
        }
        Result<Settings> settings = readAddress(target, {{StoreKey::BAUDRATE, bitRate}});
        Failure failure = settings ? interfaces.add(target, *settings, false) : settings.problem();
        if (failure) {
            return failure;
        }
    }
    interfaces.at(interfaces.rowOf(target)).open();
    return {};
}

} // namespace vexmor::Apps::Cimview
