#pragma once

#include <QAction>
#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

class QComboBox;
class QLabel;
class QProgressBar;
class QSettings;
class QTableView;

namespace vexmor::Apps::Cimview
{

class CWorkbench;

/// The list of interfaces, and what can be done with the chosen ones.
class CInterfacePanel : public QWidget
{
    Q_OBJECT

public:
    explicit CInterfacePanel(CWorkbench& workbench, QWidget* parent = nullptr);

    /// For a menu; they go with the panel.
    QList<QAction*> interfaceActions() const;
    void choose(int row);
    /// Runs the plugin's dialog for the chosen interface.
    void configure();
    /// Shows the progress of a scan that it starts.
    void startScan();

    void loadState(QSettings& settings);
    void saveState(QSettings& settings) const;

private:
    void makeActions();
    void layOut();
    QList<int> chosenRows() const;
    void openChosen();
    void closeChosen();
    void removeChosen();
    void storeChosen();
    void addInterface();
    void simulate();
    void showScan();
    void setBaudrate(const QString& rate);
    void showState();

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
    QTimer m_scanTimer;
    QElapsedTimer m_scanClock;
};

} // namespace vexmor::Apps::Cimview
