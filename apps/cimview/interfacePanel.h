#pragma once

#include <QAction>
#include <QPropertyAnimation>
#include <QWidget>

class QComboBox;
class QLabel;
class QProgressBar;
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

    /// For a menu; the panel owns them.
    QList<QAction*> interfaceActions() const;
    /// Runs the plugin's dialog for the selected interface.
    void configure();
    /// Starts a scan and shows its progress.
    void startScan();

private:
    void makeActions();
    void makeLayout();
    void confirmBitRate(const QString& name, int rate);
    void removeSelected();
    void addInterface();
    void simulate();
    void showScan();
    void setBaudrate(const QString& rate);
    void updateActions();

    CWorkbench& m_workbench;
    QTableView* m_table;
    QComboBox* m_baudrate;
    QProgressBar* m_progress;
    QLabel* m_hint; ///< what to do when there is no interface
    QAction* m_open;
    QAction* m_close;
    QAction* m_add;
    QAction* m_configure;
    QAction* m_store;
    QAction* m_remove;
    QAction* m_scan;
    QAction* m_simulate;
    QPropertyAnimation m_scanProgress; ///< of the bar, while a scan takes as long as usual
};

} // namespace vexmor::Apps::Cimview
