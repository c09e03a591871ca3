// cimviewPictures FOLDER [LOG]: takes the pictures of the user guide, with a simulated gateway that plays LOG, a
// candump log.
#include "apps/cimview/interfacePanel.h"
#include "apps/cimview/mainWindow.h"
#include "apps/cimview/messagePanel.h"
#include "apps/cimview/workbench.h"
#include "apps/cli/program.h"
#include "apps/host/translations.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QDialog>
#include <QDir>
#include <QDockWidget>
#include <QTabWidget>
#include <QTableView>

#include <cstdio>
#include <functional>
#include <stdexcept>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr int PATIENCE_MS = 30000;
constexpr int ENOUGH_MESSAGES = 1000;
constexpr std::size_t ENOUGH_BUSLOADS = 40;
constexpr std::uint8_t OVERFLOW_AND_BUS_OFF = 0x09;
constexpr int ERRORS_OF_STATUS = 4; ///< Number of errors that the status byte raises: two on each of two interfaces.

/// Processes events until a condition is met. The timers of the window keep each wait short.
void waitUntil(const char* condition, const std::function<bool()>& isMet)
{
    const QDeadlineTimer deadline(PATIENCE_MS);
    while (!isMet()) {
        if (deadline.hasExpired()) {
            throw std::runtime_error(std::string("this never happened: ") + condition);
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}

void save(const QPixmap& picture, const QString& folder, const char* name)
{
    const QString path = QDir(folder).filePath(QString::fromLatin1(name) + QStringLiteral(".png"));
    if (!QDir().mkpath(folder) || !picture.save(path)) {
        throw std::runtime_error("cannot be written: " + path.toStdString());
    }
    std::printf("%s\n", qPrintable(path));
}

void save(QWidget& widget, const QString& folder, const char* name)
{
    QCoreApplication::processEvents(); // updates the layout
    save(widget.grab(), folder, name);
}

void fillSendList(CSendList& list)
{
    unsigned char mute[] = {0x10, 0x01};
    unsigned char level[] = {0x20, 0x00, 0x7F, 0xFF};
    list.add({Cim::CCanMessage(Cim::CCanId::fromValue(0x301), sizeof mute, mute), 1000, CSendList::tr("mute"), {}});
    list.add({Cim::CCanMessage(Cim::CCanId::fromValue(0x302), sizeof level, level), 50, CSendList::tr("level"), {}});
}

void showTraffic(CWorkbench& workbench, CMainWindow& window, const QString& folder)
{
    CSendList& list = workbench.sendList();
    fillSendList(list);
    window.findChild<QDockWidget*>(QStringLiteral("Send"))->raise();
    for (const int row : {0, 1}) {
        CManagedInterface& one = workbench.interfaces().at(row);
        one.open();
        waitUntil("a gateway answers", [&one] { return one.status().isConnected(); });
    }
    list.setData(list.index(1, CSendList::eCyclic), Qt::Checked, Qt::CheckStateRole);
    waitUntil("enough traffic", [&] {
        const auto& busloads = workbench.busloads().samples();
        return workbench.feed().trace().rowCount() >= ENOUGH_MESSAGES && !busloads.empty() &&
               busloads.begin()->second.size() >= ENOUGH_BUSLOADS;
    });
    save(window, folder, "main");
    window.findChild<QTabWidget*>()->setCurrentIndex(1);
    save(window.messagePanel(), folder, "identifiers");
}

void showErrors(CWorkbench& workbench, CMainWindow& window, const QString& folder)
{
    workbench.sendList().stopAll();
    workbench.sim().gateway().sendStatus(OVERFLOW_AND_BUS_OFF);
    waitUntil("errors by status", [&] { return workbench.events().unread() >= ERRORS_OF_STATUS; });
    workbench.sim().gateway().dropLinks();
    waitUntil("a lost link", [&] { return workbench.events().unread() > ERRORS_OF_STATUS; });
    auto* const dock = window.findChild<QDockWidget*>(QStringLiteral("Events"));
    dock->raise();
    dock->findChild<QTableView*>()->selectRow(workbench.events().rowCount() - 1);
    save(*dock->widget(), folder, "events");
}

void showDialog(CWorkbench& workbench, CMainWindow& window, const QString& folder)
{
    workbench.interfaces().at(0).close();
    window.interfacePanel().findChild<QTableView*>()->selectRow(0);
    QPixmap picture;
    QTimer::singleShot(0, &window, [&picture] {
        if (auto* const dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget())) {
            picture = dialog->grab();
            dialog->reject();
        }
    });
    window.interfacePanel().configure();
    save(picture, folder, "dialog");
}

int takePictures(QApplication& application)
{
    installTranslations(application,
                        {QStringLiteral("cimview"), QStringLiteral("interfaceT93"), QStringLiteral("qtbase")});
    const QStringList arguments = QApplication::arguments();
    const SPluginSearch search = searchPlugins({});
    Failure failure =
        arguments.size() < 2 ? wrongUsage(QStringLiteral("usage: cimviewPictures FOLDER [LOG]")) : search.failure();
    if (failure) {
        return fail("error", *failure);
    }
    CWorkbench workbench(search.plugins);
    if ((failure = workbench.simulate(arguments.value(2)))) {
        return fail("error", *failure);
    }
    CMainWindow window(workbench);
    window.show();
    showTraffic(workbench, window, arguments.at(1));
    showErrors(workbench, window, arguments.at(1));
    showDialog(workbench, window, arguments.at(1));
    return 0;
}
} // namespace
} // namespace vexmor::Apps::Cimview

int main(int argc, char** argv)
{
    using namespace vexmor::Apps;
    Cimview::CMainWindow::prepareApplication();
    QApplication application(argc, argv);
    return runProgram("error", [&application] { return Cimview::takePictures(application); });
}
