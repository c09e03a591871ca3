#pragma once

#include <QMainWindow>
#include <QTimer>

#include <cstdint>

class QLabel;

namespace vexmor::Apps::Cimview
{

class CEventPanel;
class CInterfacePanel;
class CLogActions;
class CMessagePanel;
class CWorkbench;

/// The window: the messages in the middle, the other panels around them, to be moved or hidden. Keeps its state in the
/// group "Cimview" of the settings store.
class CMainWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// `workbench` must outlive the window.
    explicit CMainWindow(CWorkbench& workbench);
    ~CMainWindow() override;

    /// Before the application object is made: sets the names of organisation and application, and full resolution on
    /// dense screens.
    static void prepareApplication();

    CInterfacePanel& interfacePanel() { return *m_interfaces; }
    CMessagePanel& messagePanel() { return *m_messages; }
    CLogActions& logs() { return *m_logs; }
    QAction& darkAction() { return *m_dark; }

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    QDockWidget* addPanel(const QString& name, const QString& title, QWidget* panel, Qt::DockWidgetArea area);
    void makeMenus();
    void makeViewMenu();
    void showUnread(int unread);
    void showRate();
    void loadState();
    void saveState();

    CWorkbench& m_workbench;
    CInterfacePanel* m_interfaces;
    CMessagePanel* m_messages;
    CEventPanel* m_events;
    CLogActions* m_logs;
    QDockWidget* m_eventDock;
    QLabel* m_rate;
    QLabel* m_unread;
    QAction* m_dark;
    QTimer m_rateTimer;
    std::uint64_t m_fetched = 0; ///< messages, when the rate was shown last
};

} // namespace vexmor::Apps::Cimview
