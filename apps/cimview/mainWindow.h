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
class CSendPanel;
class CWorkbench;

/// The window: the messages on the left, the other panels beside them, to be moved, folded or hidden. Keeps its state
/// in the group "Cimview" of the settings store.
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
    void makeTitle(QDockWidget& dock);
    QDockWidget* addPanel(const QString& name, const QString& title, QWidget* panel);
    void makeMenus();
    void makeViewMenu();
    void showAlone(bool alone);
    void showStatistics();
    void showUnread();
    void showRate();
    void loadState();
    void saveState();

    CWorkbench& m_workbench;
    CInterfacePanel* m_interfaces;
    CMessagePanel* m_messages;
    CSendPanel* m_send;
    CEventPanel* m_events;
    CLogActions* m_logs;
    QDockWidget* m_eventDock;
    QLabel* m_rate;
    QLabel* m_unread;
    QAction* m_alone;
    QAction* m_dark;
    QList<QAction*> m_kept; ///< choices that are kept for the next time, under their object names
    QByteArray m_panels;    ///< their places, while the messages are alone
    QTimer m_rateTimer;
    std::uint64_t m_fetched = 0; ///< messages, when the rate was shown last
};

} // namespace vexmor::Apps::Cimview
