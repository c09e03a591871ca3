#include "apps/cimview/logActions.h"

#include "apps/cimview/panelWidgets.h"
#include "apps/cimview/workbench.h"

#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>

namespace vexmor::Apps::Cimview
{
namespace
{
QString fileTypes()
{
    return CLogActions::tr("candump logs (*.log);;All files (*)");
}
} // namespace

CLogActions::CLogActions(CWorkbench& workbench, QWidget* window)
    : QObject(window),
      m_workbench(workbench),
      m_window(window),
      m_load(makeAction(this, tr("&Load log ..."), QKeySequence::Open, [this] { chooseLoad(); })),
      m_save(makeAction(this, tr("&Save log ..."), QKeySequence::Save, [this] { chooseSave(); })),
      m_record(makeAction(this, tr("&Record to files ..."), {}, [this](bool start) { chooseRecord(start); })),
      m_replay(makeAction(this, tr("Re&play what is shown ..."), {}, [this](bool start) { chooseReplay(start); })),
      m_direction(new QAction(tr("Write the &direction into logs (R, T)"), this)),
      m_loader(workbench.names()),
      m_saver(workbench.names())
{
    m_record->setCheckable(true);
    m_replay->setCheckable(true);
    m_direction->setCheckable(true);
    CMessageFeed& feed = m_workbench.feed();
    connect(&m_loader, &CLogLoader::loaded, this, [&feed](const auto& records) {
        feed.clear();
        feed.setPaused(true);
        feed.show(records);
    });
    connect(&m_loader, &CLogLoader::finished, this, [this](quint64 count, const QString& problem) {
        const QString note = tr("%1 messages loaded; live messages wait until the pause ends.").arg(count);
        report(count > 0 ? note : QString(), problem);
    });
    connect(&m_saver, &CLogSaver::finished, this, [this, &feed](quint64 count, const QString& problem) {
        const bool isWhole = count == m_messages;
        feed.markSaved(isWhole ? m_liveBefore : 0);
        const QString note = isWhole
                                 ? tr("%1 messages saved.").arg(count)
                                 : tr("%1 of %2 messages saved: only those that are shown.").arg(count).arg(m_messages);
        report(problem.isEmpty() ? note : QString(), problem);
    });
    connect(&m_workbench.recorder(), &CLogRecorder::ended, this, [this] { m_record->setChecked(false); });
    connect(&m_player, &CLogReplay::finished, this, [this](quint64 count) {
        m_replay->setChecked(false);
        m_workbench.note(tr("Replay ended, messages sent: %1").arg(count));
    });
}

bool CLogActions::mayDiscardTrace()
{
    return !m_workbench.feed().isUnsaved() ||
           QMessageBox::warning(m_window, tr("Trace"), tr("There are messages that are not saved. Discard them?"),
                                QMessageBox::Discard | QMessageBox::Cancel,
                                QMessageBox::Cancel) == QMessageBox::Discard;
}

void CLogActions::chooseLoad()
{
    const QString path = QFileDialog::getOpenFileName(m_window, tr("Load log"), QString(), fileTypes());
    if (!path.isEmpty() && mayDiscardTrace()) {
        load(path);
    }
}

void CLogActions::load(const QString& path)
{
    setBusy(true);
    m_loader.load(path);
}

void CLogActions::chooseSave()
{
    const QString path = QFileDialog::getSaveFileName(m_window, tr("Save log"), QString(), fileTypes());
    if (!path.isEmpty()) {
        CMessageFeed& feed = m_workbench.feed();
        m_liveBefore = feed.liveCount();
        m_messages = feed.trace().size() + feed.waitingCount();
        setBusy(true);
        // Without those that a filter hides or a pause holds back.
        m_saver.save(path, feed.trace().records(), m_direction->isChecked());
    }
}

void CLogActions::chooseRecord(bool start)
{
    const QString folder =
        start ? QFileDialog::getExistingDirectory(m_window, tr("Folder of the recordings")) : QString();
    if (folder.isEmpty()) {
        m_record->setChecked(false);
        m_workbench.recorder().stop();
    } else {
        m_workbench.recorder().start(folder, m_direction->isChecked());
    }
}

void CLogActions::chooseReplay(bool start)
{
    const CInterfaceList& interfaces = m_workbench.interfaces();
    const QStringList open = interfaces.openNames();
    bool chosen = start && !open.isEmpty();
    const QString name =
        chosen ? QInputDialog::getItem(m_window, tr("Replay"), tr("Send what is shown on:"), open, 0, false, &chosen)
               : QString();
    if (chosen) {
        m_player.start(m_workbench.feed().trace().records(), [this, &interfaces, name](const auto& message) {
            const Failure failure = interfaces.send(name, message);
            failure ? m_workbench.warn(failure->text) : void();
            return !failure;
        });
        return;
    }
    m_replay->setChecked(false);
    m_player.stop();
    if (start && open.isEmpty()) {
        m_workbench.warn(interfaces.sendObstacle({})->text);
    }
}

void CLogActions::setBusy(bool busy)
{
    m_load->setEnabled(!busy);
    m_save->setEnabled(!busy);
}

void CLogActions::report(const QString& note, const QString& problem)
{
    setBusy(false);
    if (!note.isEmpty()) {
        m_workbench.note(note);
    }
    if (!problem.isEmpty()) {
        m_workbench.warn(problem);
    }
}

} // namespace vexmor::Apps::Cimview
