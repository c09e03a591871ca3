#pragma once

#include "apps/cimview/logFiles.h"
#include "apps/cimview/logReplay.h"

#include <QAction>
#include <QObject>

namespace vexmor::Apps::Cimview
{

class CWorkbench;

/// What the user does with logs of messages: load, save, record and replay, each an action with its dialog. Results go
/// to the event log.
class CLogActions : public QObject
{
    Q_OBJECT

public:
    /// `workbench` must outlive the object. `window` owns it, and the dialogs.
    CLogActions(CWorkbench& workbench, QWidget* window);

    /// For a menu.
    QList<QAction*> actions() const { return {m_load, m_save, m_compare, m_record, m_replay, m_hourly, m_direction}; }
    /// Those that are a choice for later: whether recordings begin a new file each hour, and whether lines that are
    /// written name the direction, R or T; other programs may not read these.
    QList<QAction*> choices() const { return {m_hourly, m_direction}; }
    /// Shows how a replay goes on, with its speed; for a status bar. Hidden while none runs.
    QWidget* makeReplayBar();
    /// Shows a log in place of the trace, once it is read; live messages wait then, as in a pause.
    void load(const QString& path);
    /// Asks the user whether live messages of the trace that are not saved may be discarded; true also when all are
    /// saved.
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
    QString m_loaded;               ///< name of the log that is being read
    std::uint64_t m_liveBefore = 0; ///< number of live messages when the present saving began
    std::size_t m_messages = 0;     ///< number of messages then, shown or not
};

} // namespace vexmor::Apps::Cimview
