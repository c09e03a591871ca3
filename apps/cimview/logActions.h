#pragma once

#include "apps/cimview/logFiles.h"
#include "apps/cimview/logReplay.h"

#include <QAction>
#include <QObject>

namespace vexmor::Apps::Cimview
{

class CWorkbench;

/// The actions on logs of messages, each with its dialog: load, save, compare, record and replay. Results are reported
/// in the event log.
class CLogActions : public QObject
{
    Q_OBJECT

public:
    /// `workbench` must outlive the object. `window` owns the object and the dialogs.
    CLogActions(CWorkbench& workbench, QWidget* window);

    /// Returns all actions, for a menu.
    QList<QAction*> actions() const { return {m_load, m_save, m_compare, m_record, m_replay, m_hourly, m_direction}; }
    /// Returns the options among the actions: whether a recording begins a new file each hour, and whether each line of
    /// a log ends with the direction, R or T, which some programs cannot read.
    QList<QAction*> choices() const { return {m_hourly, m_direction}; }
    /// Makes a bar with speed and progress of the replay, for the status bar. The bar is hidden while no replay runs.
    QWidget* makeReplayBar();
    /// Reads a log and then shows it in place of the trace. Live messages wait from then on, as in a pause.
    void load(const QString& path);
    /// Asks the user whether unsaved live messages may be discarded. Returns true when the user agrees or when all
    /// messages are saved.
    bool mayDiscardTrace();

private:
    void chooseLoad();
    void chooseSave();
    void chooseComparison();
    void chooseRecord(bool start);
    void chooseReplay(bool start);
    void setBusy(bool busy);
    void report(const QString& note, const QString& problem);

    CWorkbench& m_workbench;
    QWidget* m_window;
    QAction* m_load;
    QAction* m_save;
    QAction* m_compare;
    QAction* m_record;
    QAction* m_replay;
    QAction* m_hourly;
    QAction* m_direction;
    CLogLoader m_loader;
    CLogSaver m_saver;
    CLogReplay m_player;
    QString m_loaded;               ///< Name of the log that is being read.
    std::uint64_t m_liveBefore = 0; ///< Number of live messages when the present save began.
    std::size_t m_messages = 0;     ///< Number of all messages when the save began, including hidden messages.
};

} // namespace vexmor::Apps::Cimview
