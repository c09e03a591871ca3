#include "apps/cimview/messagePanel.h"

#include "apps/cimview/changedBytesDelegate.h"
#include "apps/cimview/tableSetup.h"
#include "apps/cimview/workbench.h"

#include <QFileDialog>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QScrollBar>
#include <QSettings>
#include <QTabWidget>
#include <QTableView>
#include <QToolBar>

namespace vexmor::Apps::Cimview
{
namespace
{
const QString ID_FILTER = QStringLiteral("IdFilter");
const QString TEXT_FILTER = QStringLiteral("TextFilter");
const QString TAB = QStringLiteral("MessageTab");
const QString TRACE_COLUMNS = QStringLiteral("TraceColumns");
const QString IDENTIFIER_COLUMNS = QStringLiteral("IdentifierColumns");
/// A filter is applied when the user stops typing: it goes over the whole trace.
constexpr int FILTER_DELAY_MS = 250;
constexpr int COUNT_INTERVAL_MS = 500;
constexpr int SEND_INTERVAL_MS = 1000;
constexpr QColor WRONG(220, 50, 50); ///< seen on a light ground and on a dark one
} // namespace

CMessagePanel::CMessagePanel(CWorkbench& workbench, QWidget* parent)
    : QWidget(parent),
      m_workbench(workbench),
      m_feed(workbench.feed()),
      m_identifiers(m_feed.identifiers(), workbench.names()),
      m_loader(workbench.names()),
      m_saver(workbench.names()),
      m_pause(tr("&Pause")),
      m_clear(tr("C&lear")),
      m_load(tr("&Load log ...")),
      m_save(tr("&Save log ...")),
      m_record(tr("&Record to files ...")),
      m_replay(tr("Re&play what is shown ...")),
      m_find(tr("&Find text")),
      m_follow(tr("F&ollow")),
      m_times(nullptr),
      m_idEdit(new QLineEdit(this)),
      m_textEdit(new QLineEdit(this)),
      m_counts(new QLabel(this)),
      m_tabs(new QTabWidget(this)),
      m_traceView(new QTableView(this)),
      m_identifierView(new QTableView(this))
{
    makeTables();
    m_tabs->addTab(m_traceView, tr("T&race"));
    m_tabs->addTab(m_identifierView, tr("B&y identifier"));
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(makeFilterBar());
    layout->addWidget(m_tabs, 1);
    connectActions();
    setFocusProxy(m_traceView);
}

QWidget* CMessagePanel::makeFilterBar()
{
    m_pause.setCheckable(true);
    m_pause.setShortcut(QKeySequence(Qt::Key_F8));
    m_clear.setShortcut(QKeySequence(QStringLiteral("Ctrl+L")));
    m_load.setShortcut(QKeySequence::Open);
    m_save.setShortcut(QKeySequence::Save);
    m_find.setShortcut(QKeySequence::Find);
    m_record.setCheckable(true);
    m_replay.setCheckable(true);
    m_follow.setCheckable(true);
    m_follow.setChecked(true);
    m_follow.setShortcut(QKeySequence(Qt::Key_F9));
    m_follow.setToolTip(
        tr("Keeps the newest message in view. Scrolling up ends it, scrolling to the end begins it again."));
    m_idEdit->setPlaceholderText(tr("all, or like 123  120:7F0"));
    m_idEdit->setClearButtonEnabled(true);
    m_textEdit->setPlaceholderText(tr("any text or data"));
    m_textEdit->setToolTip(
        tr("Shows only messages with this text in interface, direction, identifier, data or ASCII."));
    m_textEdit->setClearButtonEnabled(true);
    auto* const idLabel = new QLabel(tr("Ide&ntifier:"), this);
    idLabel->setBuddy(m_idEdit);
    auto* const textLabel = new QLabel(tr("Te&xt:"), this);
    textLabel->setBuddy(m_textEdit);

    auto* const bar = new QWidget(this);
    auto* const layout = new QHBoxLayout(bar);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(idLabel);
    layout->addWidget(m_idEdit, 1);
    layout->addWidget(textLabel);
    layout->addWidget(m_textEdit, 1);
    layout->addWidget(makeToolBar({&m_pause, &m_follow, &m_clear}, bar));
    layout->addWidget(m_counts);
    return bar;
}

void CMessagePanel::makeTables()
{
    const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    const QString data = QStringLiteral("00 11 22 33 44 55 66 77  ");
    m_traceView->setFont(fixed);
    m_traceView->setModel(&m_feed.trace());
    setUpTable(*m_traceView);
    setColumnWidths(*m_traceView, {QStringLiteral("00:00:00.000000"), QStringLiteral("Some interface 1"),
                                   QStringLiteral("RX  "), QStringLiteral("7FF  "), QStringLiteral("8"), data});
    m_traceView->setColumnHidden(CTraceModel::eAdmin, true); // for those who know these messages
    m_identifierView->setFont(fixed);
    m_identifierView->setModel(&m_identifiers);
    m_identifierView->setItemDelegateForColumn(CIdentifierModel::eData, new CChangedBytesDelegate(this));
    setUpTable(*m_identifierView);
    setColumnWidths(*m_identifierView,
                    {QStringLiteral("7FF  "), QStringLiteral("Some interface 1"), QStringLiteral("RX  "),
                     QStringLiteral("1000000"), QStringLiteral("10000.0"), QStringLiteral("10000.0"),
                     QStringLiteral("10000.0"), QStringLiteral("10000.0"), QStringLiteral("8"), data});
    m_identifierView->setSortingEnabled(true);
    m_identifierView->sortByColumn(CIdentifierModel::eId, Qt::AscendingOrder);
    addRowActions(*m_traceView, [this](int row) { return m_feed.trace().record(row); });
    addRowActions(*m_identifierView, [this](int row) {
        return m_feed.identifiers().record(m_identifiers.mapToSource(m_identifiers.index(row, 0)).row());
    });
    followEnd();
}

void CMessagePanel::addRowActions(QTableView& view, const std::function<STraceRecord(int)>& recordOf)
{
    const auto add = [&view, recordOf](const QString& text, const std::function<void(const STraceRecord&)>& act) {
        auto* const action = new QAction(text, &view);
        connect(action, &QAction::triggered, &view, [&view, recordOf, act] {
            if (view.currentIndex().isValid()) {
                act(recordOf(view.currentIndex().row()));
            }
        });
        view.addAction(action);
    };
    add(tr("Show only this identifier"), [this](const auto& record) { m_idEdit->setText(idText(record.message)); });
    add(tr("Add to the messages to send"), [this](const auto& record) {
        m_workbench.sendList().add({record.message, SEND_INTERVAL_MS, {}});
    });
}

void CMessagePanel::followEnd()
{
    const auto& trace = m_feed.trace();
    QScrollBar* const bar = m_traceView->verticalScrollBar();
    const auto follow = [this] {
        if (m_follow.isChecked()) {
            m_traceView->scrollToBottom();
        }
    };
    connect(&m_follow, &QAction::toggled, this, follow);
    connect(&trace, &QAbstractItemModel::rowsInserted, this, follow);
    connect(bar, &QScrollBar::rangeChanged, this, [this, follow](int /*minimum*/, int maximum) {
        m_lastRow = maximum;
        follow();
    });
    // With another range it was rows that came, or a view that was resized; with the same it was the user.
    connect(bar, &QScrollBar::valueChanged, this, [this](int value) {
        if (m_traceView->verticalScrollBar()->maximum() == m_lastRow) {
            m_follow.setChecked(value == m_lastRow);
        }
    });
    // What the user reads stays in its place when older messages go.
    connect(&trace, &QAbstractItemModel::rowsRemoved, this, [this, bar](const QModelIndex&, int first, int last) {
        if (!m_follow.isChecked()) {
            bar->setValue(bar->value() - (last - first + 1));
        }
    });
    connect(&trace, &QAbstractItemModel::modelReset, m_traceView, &QTableView::scrollToBottom, Qt::QueuedConnection);
}

void CMessagePanel::connectActions()
{
    connect(&m_pause, &QAction::toggled, this, [this](bool paused) { m_feed.setPaused(paused); });
    const std::pair<QString, CTraceModel::ETime> times[] = {
        {tr("Time of &day"), CTraceModel::ETime::eOfDay},
        {tr("Time since the &first"), CTraceModel::ETime::eSinceStart},
        {tr("Time since the one &before"), CTraceModel::ETime::eSinceBefore}};
    for (const auto& [text, time] : times) {
        QAction* const action = m_times.addAction(text);
        action->setCheckable(true);
        action->setChecked(time == CTraceModel::ETime::eOfDay);
        connect(action, &QAction::triggered, this, [this, time = time] { m_feed.trace().setTime(time); });
    }
    connect(&m_clear, &QAction::triggered, this, [this] { m_feed.clear(); });
    connect(&m_load, &QAction::triggered, this, [this] { askForLog(false); });
    connect(&m_save, &QAction::triggered, this, [this] { askForLog(true); });
    connect(&m_record, &QAction::triggered, this, &CMessagePanel::record);
    connect(&m_workbench.recorder(), &CLogRecorder::ended, this, [this] { m_record.setChecked(false); });
    connect(&m_replay, &QAction::triggered, this, &CMessagePanel::replay);
    connect(&m_replayer, &CLogReplay::finished, this, [this](quint64 count) {
        m_replay.setChecked(false);
        m_workbench.note(tr("Replay ended, messages sent: %1").arg(count));
    });
    connect(&m_find, &QAction::triggered, m_textEdit, [this] {
        m_textEdit->setFocus();
        m_textEdit->selectAll();
    });
    connect(&m_loader, &CLogLoader::loaded, this, [this](const auto& records) {
        m_feed.clear();
        m_pause.setChecked(true);
        m_feed.show(records);
    });
    connect(&m_loader, &CLogLoader::finished, this, &CMessagePanel::onLoaded);
    connect(&m_saver, &CLogSaver::finished, this, &CMessagePanel::onSaved);

    m_filterTimer.setSingleShot(true);
    m_filterTimer.setInterval(FILTER_DELAY_MS);
    connect(&m_filterTimer, &QTimer::timeout, this, &CMessagePanel::applyFilter);
    for (QLineEdit* const edit : {m_idEdit, m_textEdit}) {
        connect(edit, &QLineEdit::textChanged, &m_filterTimer, QOverload<>::of(&QTimer::start));
        connect(edit, &QLineEdit::returnPressed, this, &CMessagePanel::applyFilter);
    }
    connect(&m_countTimer, &QTimer::timeout, this, &CMessagePanel::showCounts);
    m_countTimer.start(COUNT_INTERVAL_MS);
    showCounts();
}

void CMessagePanel::applyFilter()
{
    m_filterTimer.stop();
    auto filters = readFilters(m_idEdit->text());
    if (filters) { // otherwise it is still being typed: what was there before goes on
        const CMessageMatcher matcher(*filters, m_textEdit->text());
        m_feed.trace().setMatcher(matcher);
        m_identifiers.setMatcher(matcher);
    }
    m_filterProblem = filters ? QString() : filters.problem().text;
    QPalette colours;
    if (!filters) {
        colours.setColor(QPalette::Text, WRONG);
    }
    m_idEdit->setPalette(colours);
    m_idEdit->setToolTip(
        filters ? tr("Identifiers to show, hexadecimal: ID, LOW-HIGH, ID:MASK for all that equal ID in the\n"
                     "bits of MASK, ID~MASK for all but these. Several stand with blanks between.")
                : m_filterProblem);
    showCounts();
}

void CMessagePanel::askForLog(bool save)
{
    const QString filter = tr("candump logs (*.log);;All files (*)");
    const QString path = save ? QFileDialog::getSaveFileName(this, tr("Save log"), QString(), filter)
                              : QFileDialog::getOpenFileName(this, tr("Load log"), QString(), filter);
    if (!path.isEmpty() && (save || mayDropTrace())) {
        save ? saveLog(path) : loadLog(path);
    }
}

bool CMessagePanel::mayDropTrace()
{
    return !m_feed.isUnsaved() ||
           QMessageBox::warning(this, tr("Trace"), tr("The messages of the trace are not saved. Drop them?"),
                                QMessageBox::Discard | QMessageBox::Cancel,
                                QMessageBox::Cancel) == QMessageBox::Discard;
}

void CMessagePanel::loadLog(const QString& path)
{
    m_load.setEnabled(false);
    m_save.setEnabled(false);
    m_loader.load(path);
}

void CMessagePanel::onLoaded(quint64 count, const QString& problem)
{
    m_load.setEnabled(true);
    m_save.setEnabled(true);
    if (count > 0) {
        m_workbench.note(tr("%1 messages loaded; live messages wait until the pause ends.").arg(count));
    }
    if (!problem.isEmpty()) {
        m_workbench.warn(problem);
    }
}

std::vector<STraceRecord> CMessagePanel::shownRecords() const
{
    std::vector<STraceRecord> records;
    records.reserve(static_cast<std::size_t>(m_feed.trace().rowCount()));
    for (int row = 0; row < m_feed.trace().rowCount(); ++row) {
        records.push_back(m_feed.trace().record(row));
    }
    return records;
}

void CMessagePanel::record(bool start)
{
    const QString folder = start ? QFileDialog::getExistingDirectory(this, tr("Folder of the recordings")) : QString();
    if (folder.isEmpty()) {
        m_record.setChecked(false);
        m_workbench.recorder().stop();
    } else {
        m_workbench.recorder().start(folder);
    }
}

void CMessagePanel::replay(bool start)
{
    CInterfaceList& interfaces = m_workbench.interfaces();
    QStringList open;
    for (int row = 0; row < interfaces.rowCount(); ++row) {
        if (interfaces.at(row).isOpen()) {
            open.append(interfaces.at(row).name());
        }
    }
    bool chosen = start && !open.isEmpty();
    const QString name =
        chosen ? QInputDialog::getItem(this, tr("Replay"), tr("Send what is shown on:"), open, 0, false, &chosen)
               : QString();
    if (!chosen) {
        m_replay.setChecked(false);
        m_replayer.stop();
        if (start && open.isEmpty()) {
            m_workbench.warn(tr("Open an interface first: there is none to send on."));
        }
        return;
    }
    m_replayer.start(shownRecords(), [&interfaces, name](const Cim::CCanMessage& message) {
        CInterfaceInUse* const sender = interfaces.sender(name);
        if (sender != nullptr) {
            sender->send(message);
        }
        return sender != nullptr;
    });
}

void CMessagePanel::saveLog(const QString& path)
{
    m_load.setEnabled(false);
    m_save.setEnabled(false);
    m_saver.save(path, shownRecords());
}

void CMessagePanel::onSaved(quint64 count, const QString& problem)
{
    m_load.setEnabled(true);
    m_save.setEnabled(true);
    if (problem.isEmpty()) {
        m_feed.markSaved();
        m_workbench.note(tr("%1 messages saved.").arg(count));
    } else {
        m_workbench.warn(problem);
    }
}

void CMessagePanel::showCounts()
{
    if (!m_filterProblem.isEmpty()) {
        m_counts->setText(tr("wrong filter"));
    } else if (m_feed.isPaused()) {
        m_counts->setText(tr("%L1 waiting").arg(m_feed.heldBack()));
    } else {
        m_counts->setText(tr("%L1 of %L2").arg(m_feed.trace().rowCount()).arg(m_feed.trace().size()));
    }
}

void CMessagePanel::setTab(int tab)
{
    m_tabs->setCurrentIndex(tab);
}

void CMessagePanel::loadState(QSettings& settings)
{
    m_idEdit->setText(settings.value(ID_FILTER).toString());
    m_textEdit->setText(settings.value(TEXT_FILTER).toString());
    setTab(settings.value(TAB).toInt());
    m_traceView->horizontalHeader()->restoreState(settings.value(TRACE_COLUMNS).toByteArray());
    m_identifierView->horizontalHeader()->restoreState(settings.value(IDENTIFIER_COLUMNS).toByteArray());
    applyFilter();
}

void CMessagePanel::saveState(QSettings& settings) const
{
    settings.setValue(ID_FILTER, m_idEdit->text());
    settings.setValue(TEXT_FILTER, m_textEdit->text());
    settings.setValue(TAB, m_tabs->currentIndex());
    settings.setValue(TRACE_COLUMNS, m_traceView->horizontalHeader()->saveState());
    settings.setValue(IDENTIFIER_COLUMNS, m_identifierView->horizontalHeader()->saveState());
}

} // namespace vexmor::Apps::Cimview
