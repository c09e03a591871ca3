#pragma once

#include "apps/cimview/identifierModel.h"
#include "apps/cimview/messageFeed.h"

#include <QAction>
#include <QTimer>
#include <QWidget>

class QLabel;
class QLineEdit;
class QSettings;
class QTabWidget;
class QTableView;

namespace vexmor::Apps::Cimview
{

class CWorkbench;

/// The panel with the messages: the live trace, which shows the newest message until the user scrolls up, the view by
/// identifier, filters and pause.
class CMessagePanel : public QWidget
{
    Q_OBJECT

public:
    explicit CMessagePanel(CWorkbench& workbench, QWidget* parent = nullptr);

    /// Returns the actions for a menu.
    QList<QAction*> messageActions() const { return m_actions; }
    /// Returns the actions that choose the time in the trace, for a menu.
    QList<QAction*> timeActions() const { return m_times; }
    QTableView& traceView() { return *m_traceView; }

    /// Loads the filters and the chosen tab from the current group of `settings`.
    void loadState(QSettings& settings);
    void saveState(QSettings& settings) const;

private:
    void makeActions();
    void pause(bool paused);
    QWidget* makeFilterBar();
    void makeTables();
    const SBusRecord& recordOf(const QTableView& view, int row) const;
    void addRowActions(QTableView& view);
    void find(bool forward);
    void loadNames(const QString& path);
    void followEnd();
    void applyFilter();
    void showCounts();

    CWorkbench& m_workbench;
    CMessageFeed& m_feed;
    CIdentifierFilter m_identifiers;
    QLineEdit* m_idEdit;
    QLineEdit* m_textEdit;
    QLineEdit* m_findEdit;
    QLabel* m_counts;
    QTabWidget* m_tabs;
    QTableView* m_traceView;
    QTableView* m_identifierView;
    QAction* m_pause;
    QAction* m_follow;
    QAction* m_clear;
    QList<QAction*> m_actions;
    QList<QAction*> m_times;
    QString m_namesFile;     ///< File with the names of identifiers; empty: none.
    QString m_filterProblem; ///< Why the text in `m_idEdit` is not a filter; empty when it is one.
    QTimer m_filterTimer;
    QTimer m_countTimer;
    int m_lastRow = 0; ///< Position of the scroll bar of the trace at which the last row is shown.
};

} // namespace vexmor::Apps::Cimview
