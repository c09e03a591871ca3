#include "apps/cimview/logActions.h"

#include "apps/cimview/comparisonDialog.h"
#include "apps/cimview/panelWidgets.h"
#include "apps/cimview/workbench.h"

#include <QtWidgets>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr double MAX_SPEED = 100; ///< Greatest speed factor of a replay.
constexpr double SPEED_STEP = 0.5;

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
      m_compare(makeAction(this, tr("&Compare two logs ..."), {}, [this] { chooseComparison(); })),
      m_record(makeAction(this, tr("&Record to files ..."), {}, [this](bool start) { chooseRecord(start); })),
      m_replay(makeAction(this, tr("Re&play what is shown ..."), {}, [this](bool start) { chooseReplay(start); })),
      m_hourly(new QAction(tr("Record to a new file each &hour"), this)),
      m_direction(new QAction(tr("Write the &direction into logs (R, T)"), this)),
      m_loader(workbench.names()),
      m_saver(workbench.names())
{
    m_record->setCheckable(true);
    m_replay->setCheckable(true);
    m_hourly->setCheckable(true);
    m_hourly->setObjectName(QStringLiteral("HourlyRecordings"));
    m_direction->setCheckable(true);
    m_direction->setObjectName(QStringLiteral("LogDirection"));
    CMessageFeed& feed = m_workbench.feed();
    connect(&m_loader, &CLogLoader::loaded, this,
            [this, &feed](const auto& records) { feed.showLog(m_loaded, records); });
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
           QMessageBox::warning(m_window, tr("Trace"), tr("Some messages are not saved. Discard them?"),
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
    m_loaded = QFileInfo(path).fileName();
    m_loader.load(path);
}

void CLogActions::chooseSave()
{
    const QString name = QDateTime::currentDateTime().toString(QStringLiteral("'cimview-'yyyyMMdd-HHmmss"));
    const QString path = chooseFileToWrite(m_window, tr("Save log"), name,
                                           tr("candump logs (*.log);;Tables for other programs (*.csv)"));
    if (!path.isEmpty()) {
        CMessageFeed& feed = m_workbench.feed();
        m_liveBefore = feed.liveCount();
        m_messages = feed.trace().size() + feed.waitingCount();
        setBusy(true);
        // Messages that a filter hides or a pause holds back are not saved.
        m_saver.save(path, feed.trace().records(), m_direction->isChecked());
    }
}

/// Lets the user choose two logs to compare, together or one after the other. Of two logs chosen together, the first
/// by name counts as the earlier one: names of recordings begin with their time.
void CLogActions::chooseComparison()
{
    const QString title = tr("Choose two logs to compare, or the earlier one first");
    QStringList paths = QFileDialog::getOpenFileNames(m_window, title, QString(), fileTypes());
    paths.sort();
    if (paths.size() == 1) {
        paths += QFileDialog::getOpenFileNames(m_window, tr("Choose the later log"), QString(), fileTypes());
    }
    if (paths.size() == 2) {
        (new CComparisonDialog(m_window, m_workbench.names(), paths.at(0), paths.at(1)))->show();
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
        const auto period = m_hourly->isChecked() ? CLogRecorder::EPeriod::eHour : CLogRecorder::EPeriod::eDay;
        m_workbench.recorder().start(folder, period, [this, withDirection = m_direction->isChecked()](const auto& one) {
            return logLine(one, m_workbench.names(), withDirection);
        });
    }
}

void CLogActions::chooseReplay(bool start)
{
    const CInterfaceList& interfaces = m_workbench.interfaces();
    const QStringList open = interfaces.openNames();
    bool chosen = start && !open.isEmpty();
    const QString name =
        chosen ? QInputDialog::getItem(m_window, tr("Replay"), tr("Interface for the replay:"), open, 0, false, &chosen)
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

QWidget* CLogActions::makeReplayBar()
{
    auto* const loop = new QAction(tr("Loop"), this);
    auto* const speed = new QDoubleSpinBox;
    auto* const progress = new QProgressBar;
    loop->setCheckable(true);
    speed->setAccessibleName(tr("Speed of the replay"));
    speed->setSuffix(tr(" x"));
    speed->setRange(0.1, MAX_SPEED);
    speed->setSingleStep(SPEED_STEP);
    speed->setValue(1);
    progress->setAccessibleName(tr("Replay"));
    progress->setFormat(tr("Replay") + QStringLiteral(" %p %"));
    QToolBar* const bar = makeToolBar({loop, makeAction(this, tr("Stop"), {}, [this] { m_player.stop(); })}, m_window);
    bar->addWidget(speed);
    bar->addWidget(progress);
    connect(loop, &QAction::toggled, &m_player, &CLogReplay::setLoop);
    connect(speed, QOverload<double>::of(&QDoubleSpinBox::valueChanged), &m_player, &CLogReplay::setSpeed);
    connect(&m_player, &CLogReplay::progressed, bar, [bar, progress](int sent, int all) {
        bar->show();
        progress->setMaximum(all);
        progress->setValue(sent);
    });
    connect(&m_player, &CLogReplay::finished, bar, &QWidget::hide);
    bar->hide();
    return bar;
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
