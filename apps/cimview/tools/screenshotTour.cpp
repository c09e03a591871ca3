#include "apps/cimview/tools/screenshotTour.h"

#include "apps/cimview/eventPanel.h"
#include "apps/cimview/interfacePanel.h"
#include "apps/cimview/mainWindow.h"
#include "apps/cimview/messagePanel.h"
#include "apps/cimview/workbench.h"

#include <QApplication>
#include <QDialog>

#include <cstdio>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr int TICK_MS = 50;
constexpr int MAX_TICKS = 30000 / TICK_MS;
constexpr int EXIT_INCOMPLETE = 1;
constexpr int ENOUGH_MESSAGES = 1000;
constexpr std::size_t ENOUGH_BUSLOADS = 40;
constexpr std::uint8_t OVERFLOW_AND_BUS_OFF = 0x09;
} // namespace

CScreenshotTour::CScreenshotTour(CWorkbench& workbench, CMainWindow& window, const QString& folder)
    : m_workbench(workbench), m_window(window), m_folder(folder), m_steps(steps())
{
    connect(&m_timer, &QTimer::timeout, this, &CScreenshotTour::onTick);
    m_timer.start(TICK_MS);
}

std::vector<CScreenshotTour::SStep> CScreenshotTour::steps()
{
    const auto hasTraffic = [this] {
        const auto& busloads = m_workbench.busloads().samples();
        return m_workbench.feed().trace().rowCount() >= ENOUGH_MESSAGES && !busloads.empty() &&
               busloads.begin()->second.size() >= ENOUGH_BUSLOADS;
    };
    const auto always = [] { return true; };
    const auto hasErrors = [this] { return m_workbench.events().unread() >= 5; };
    const auto isOpen = [this] {
        return m_workbench.interfaces().at(0).isOpen() && m_workbench.interfaces().at(1).isOpen();
    };
    const auto isClosed = [this] { return m_workbench.interfaces().activeCount() == 0; };
    return {
        {always, [this] { prepare(); }},
        {isOpen, [this] { sendLevel(); }},
        {hasTraffic, [this] { save(m_window, QStringLiteral("main")); }},
        {always, [this] { m_window.messagePanel().setTab(1); }},
        {always, [this] { save(m_window.messagePanel(), QStringLiteral("identifiers")); }},
        {always, [this] { provokeErrors(); }},
        {hasErrors,
         [this] {
             m_window.showPanel(QStringLiteral("Events"));
             m_window.eventPanel().selectRow(m_workbench.events().rowCount() - 1);
         }},
        {always,
         [this] {
             save(m_window.eventPanel(), QStringLiteral("events"));
             m_window.interfacePanel().selectRow(0);
             for (int row = 0; row < m_workbench.interfaces().rowCount(); ++row) {
                 m_workbench.interfaces().at(row).close();
             }
         }},
        {isClosed, [this] { showDialog(); }},
        {always, [] { QCoreApplication::quit(); }},
    };
}

void CScreenshotTour::onTick()
{
    if (m_steps.at(m_next).isReady()) {
        takeStep();
    } else if (++m_ticks > MAX_TICKS) {
        std::fprintf(stderr, "error: step %zu of the tour is never ready\n", m_next + 1);
        QCoreApplication::exit(EXIT_INCOMPLETE);
    }
}

void CScreenshotTour::takeStep()
{
    m_ticks = 0;
    const SStep& step = m_steps.at(m_next++);
    m_timer.stop(); // the step may run a dialog
    step.act();
    if (m_next < m_steps.size()) {
        m_timer.start(TICK_MS);
    }
}

void CScreenshotTour::prepare()
{
    unsigned char mute[] = {0x10, 0x01};
    unsigned char level[] = {0x20, 0x00, 0x7F, 0xFF};
    CSendList& list = m_workbench.sendList();
    list.add({Cim::CCanMessage(Cim::CCanId::fromValue(0x301), sizeof mute, mute), 1000, tr("mute")});
    list.add({Cim::CCanMessage(Cim::CCanId::fromValue(0x302), sizeof level, level), 50, tr("level")});
    m_window.showPanel(QStringLiteral("Send"));
    for (int row = 0; row < m_workbench.interfaces().rowCount(); ++row) {
        m_workbench.interfaces().at(row).open();
    }
}

void CScreenshotTour::sendLevel()
{
    CSendList& list = m_workbench.sendList();
    list.setData(list.index(1, CSendList::eCyclic), Qt::Checked, Qt::CheckStateRole);
}

void CScreenshotTour::provokeErrors()
{
    m_workbench.sendList().stopAll();
    m_workbench.sim().gateway().sendStatus(OVERFLOW_AND_BUS_OFF);
    connect(&m_workbench.events(), &CEventModel::unreadChanged, &m_workbench, [this](int unread) {
        if (unread == 4) { // both have arrived, on both interfaces
            m_workbench.sim().gateway().dropLinks();
        }
    });
}

void CScreenshotTour::showDialog()
{
    QTimer waiter;
    int ticks = 0;
    connect(&waiter, &QTimer::timeout, this, [this, &waiter, &ticks] {
        auto* const dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (dialog != nullptr && ++ticks > 1) { // it has been painted once
            save(*dialog, QStringLiteral("dialog"));
            waiter.stop();
            dialog->reject();
        }
    });
    waiter.start(TICK_MS);
    m_window.interfacePanel().configure();
    if (ticks == 0) {
        std::fprintf(stderr, "error: the plugin shows no dialog\n");
    }
}

void CScreenshotTour::save(QWidget& widget, const QString& name)
{
    const QString path = m_folder.filePath(name + QStringLiteral(".png"));
    const bool saved = m_folder.mkpath(QStringLiteral(".")) && widget.grab().save(path);
    std::printf("%s%s\n", saved ? "" : "cannot be written: ", qPrintable(path));
}

} // namespace vexmor::Apps::Cimview
