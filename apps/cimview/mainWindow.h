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

/// The main window: the messages on the left, and beside them the other panels, which the user can move, fold and hide.
/// Keeps its state in the group "Cimview" of the settings store.
class CMainWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// `workbench` must outlive the window.
    explicit CMainWindow(CWorkbench& workbench);
    ~CMainWindow() override;

    /// Sets the names of organisation and application, and full resolution on high-density screens. To be called before
    /// the application object is created.
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
    QList<QAction*> m_savedOptions; ///< Options that are saved under their object names.
    QByteArray m_panels;            ///< Places of the panels, saved while the messages are shown alone.
    QTimer m_rateTimer;
    std::uint64_t m_fetched = 0; ///< Number of messages fetched before the last update of the rate.
};

} // namespace vexmor::Apps::Cimview
