// cimviewPictures FOLDER [LOG]: takes the pictures of the user guide, on a simulated gateway; LOG, a log of candump, is
// the traffic.
#include "apps/cimview/mainWindow.h"
#include "apps/cimview/startup.h"
#include "apps/cimview/tools/screenshotTour.h"
#include "apps/cimview/workbench.h"
#include "apps/host/pluginFolder.h"
#include "apps/host/translations.h"

#include <QApplication>

using namespace vexmor::Apps;

int main(int argc, char** argv)
{
    Cimview::prepareApplication();
    QApplication application(argc, argv);
    installTranslations(application,
                        {QStringLiteral("cimview"), QStringLiteral("interfaceT93"), QStringLiteral("qtbase")});
    const QStringList arguments = QApplication::arguments();
    const SPluginSearch search = searchPlugins({});
    if (search.failure() || arguments.size() < 2) {
        qCritical("%s", search.failure() ? qPrintable(search.failure()->text) : "usage: cimviewPictures FOLDER [LOG]");
        return 2;
    }
    Cimview::CWorkbench workbench(search.plugins);
    if (const auto failure = workbench.simulate(arguments.value(2))) {
        qCritical("%s", qPrintable(failure->text));
        return 1;
    }
    Cimview::CMainWindow window(workbench);
    window.show();
    const Cimview::CScreenshotTour tour(workbench, window, arguments.at(1));
    return QApplication::exec();
}
