#pragma once

#include "apps/cimview/identifierModel.h"
#include "apps/cimview/logFiles.h"
#include "apps/cimview/logReplay.h"
#include "apps/cimview/messageFeed.h"

#include <QAction>
#include <QActionGroup>
#include <QTimer>
#include <QWidget>

#include <functional>

class QLabel;
class QLineEdit;
class QSettings;
class QTabWidget;
class QTableView;

namespace vexmor::Apps::Cimview
{

class CWorkbench;

/// The messages: the live trace, which follows its end until the user scrolls up, and the view by identifier; with
/// filters, pause and logs.
class CMessagePanel : public QWidget
{
    Q_OBJECT

public:
    explicit CMessagePanel(CWorkbench& workbench, QWidget* parent = nullptr);

    QAction& pauseAction() { return m_pause; }
    QAction& clearAction() { return m_clear; }
    QAction& loadAction() { return m_load; }
    QAction& saveAction() { return m_save; }
    QAction& recordAction() { return m_record; }
    QAction& replayAction() { return m_replay; }
    QAction& findAction() { return m_find; }

    QAction& followAction() { return m_follow; }
    QList<QAction*> timeActions() const { return m_times.actions(); }

    /// Shows a log in the place of the trace, once it is read; the live display is paused then.
    void loadLog(const QString& path);
    /// Writes the messages that are shown.
    void saveLog(const QString& path);
    /// Asks the user when the trace has live messages that are not saved; true when it may go.
    bool mayDropTrace();
    /// Shows the trace (0) or the view by identifier (1).
    void setTab(int tab);

    QTableView& traceView() { return *m_traceView; }

    void loadState(QSettings& settings);
    void saveState(QSettings& settings) const;

private:
    QWidget* makeFilterBar();
    void makeTables();
    void connectActions();
    void addRowActions(QTableView& view, const std::function<STraceRecord(int)>& recordOf);
    void followEnd();
    void applyFilter();
    std::vector<STraceRecord> shownRecords() const;
    void record(bool start);
    void replay(bool start);
    void askForLog(bool save);
    void onLoaded(quint64 count, const QString& problem);
    void onSaved(quint64 count, const QString& problem);
    void showCounts();

    CWorkbench& m_workbench;
    CMessageFeed& m_feed;
    CIdentifierFilter m_identifiers;
    CLogLoader m_loader;
    CLogSaver m_saver;
    CLogReplay m_replayer;
    QAction m_pause;
    QAction m_clear;
    QAction m_load;
    QAction m_save;
    QAction m_record;
    QAction m_replay;
    QAction m_find;
    QAction m_follow;
    QActionGroup m_times;
    QLineEdit* m_idEdit;
    QLineEdit* m_textEdit;
    QLabel* m_counts;
    QString m_filterProblem; ///< why what was typed is no filter; empty: it is one
    QTabWidget* m_tabs;
    QTableView* m_traceView;
    QTableView* m_identifierView;
    QTimer m_filterTimer;
    QTimer m_countTimer;
    int m_lastRow = 0; ///< where the scroll bar of the trace ends
};

} // namespace vexmor::Apps::Cimview
