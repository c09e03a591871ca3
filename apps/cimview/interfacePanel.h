#pragma once

#include <QAction>
#include <QWidget>

class QLabel;
class QMenu;
class QTableView;

namespace vexmor::Apps::Cimview
{

class CWorkbench;

/// The list of interfaces, and the actions on the selected ones.
class CInterfacePanel : public QWidget
{
    Q_OBJECT

public:
    explicit CInterfacePanel(CWorkbench& workbench, QWidget* parent = nullptr);

    /// Returns the actions for a menu; the panel owns them.
    QList<QAction*> interfaceActions() const;
    /// Runs the plugin's dialog for the selected interface.
    void configure();
    /// Starts a scan. The interfaces that the scan adds become selected.
    void startScan();

Q_SIGNALS:
    /// Emitted when the user chooses an interface to send on.
    void sendTargetChosen(const QString& name);

private:
    void makeActions();
    void makeLayout();
    void confirmBitRate(const QString& name, int rate);
    void removeSelected();
    void addInterface();
    void simulate();
    void showFound(int added);
    void setBaudrate(const QString& rate);
    void updateActions();

    CWorkbench& m_workbench;
    QTableView* m_table;
    QLabel* m_hint; ///< Shows what to do while the list is empty.
    QMenu* m_baudrate;
    QAction* m_open;
    QAction* m_close;
    QAction* m_add;
    QAction* m_configure;
    QAction* m_store;
    QAction* m_remove;
    QAction* m_scan;
    QAction* m_simulate;
    QAction* m_sendTo;
};

} // namespace vexmor::Apps::Cimview
