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

/// The messages: the live trace, which follows its end until the user scrolls up, and the view by identifier; with
/// filters and pause.
class CMessagePanel : public QWidget
{
    Q_OBJECT

public:
    explicit CMessagePanel(CWorkbench& workbench, QWidget* parent = nullptr);

    /// For a menu.
    QList<QAction*> messageActions() const { return m_actions; }
    /// For a menu: which time the trace shows, one of several.
    QList<QAction*> timeActions() const { return m_times; }
    QAction& pauseAction() { return *m_pause; }
    QAction& followAction() { return *m_follow; }
    QTableView& traceView() { return *m_traceView; }

    /// Filters and tab, in the group that is open on `settings`.
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
    QString m_namesFile;     ///< the names of identifiers in use; empty: none
    QString m_filterProblem; ///< why the text in `m_idEdit` is no filter; empty: it is one
    QTimer m_filterTimer;
    QTimer m_countTimer;
    int m_lastRow = 0; ///< where the scroll bar of the trace ends
};

} // namespace vexmor::Apps::Cimview
