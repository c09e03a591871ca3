// cimviewLoad TARGET SECONDS: tells how the window keeps up with a gateway, for so long from its first message on.
#include "apps/cimview/mainWindow.h"
#include "apps/cimview/startup.h"
#include "apps/cimview/tools/loadReport.h"
#include "apps/cimview/workbench.h"
#include "apps/host/pluginFolder.h"

#include <QApplication>

using namespace vexmor::Apps;

int main(int argc, char** argv)
{
    Cimview::prepareApplication();
    const QApplication application(argc, argv);
    const QStringList arguments = QApplication::arguments();
    const double seconds = arguments.value(2).toDouble();
    const SPluginSearch search = searchPlugins({});
    if (search.failure() || !(seconds > 0)) {
        qCritical("%s", search.failure() ? qPrintable(search.failure()->text) : "usage: cimviewLoad TARGET SECONDS");
        return 2;
    }
    Cimview::CWorkbench workbench(search.plugins);
    if (const auto failure = openTarget(workbench.interfaces(), arguments.at(1))) {
        qCritical("%s", qPrintable(failure->text));
        return 1;
    }
    Cimview::CMainWindow window(workbench);
    window.show();
    const Cimview::CLoadReport report(workbench, window, seconds);
    return QApplication::exec();
}
