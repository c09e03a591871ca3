#include "apps/cimview/messagePanel.h"

#include "apps/cimview/cellDelegates.h"
#include "apps/cimview/panelWidgets.h"
#include "apps/cimview/workbench.h"

#include <QtWidgets>

#include <functional>

namespace vexmor::Apps::Cimview
{
namespace
{
const QString ID_FILTER = QStringLiteral("IdFilter");
const QString TEXT_FILTER = QStringLiteral("TextFilter");
const QString NAMES_FILE = QStringLiteral("IdentifierNames");
const QString TAB = QStringLiteral("MessageTab");
/// Time after the last key until a filter is applied, since a filter searches the whole trace.
constexpr int FILTER_DELAY_MS = 250;
constexpr int COUNT_INTERVAL_MS = 500;
} // namespace

CMessagePanel::CMessagePanel(CWorkbench& workbench, QWidget* parent)
    : QWidget(parent),
      m_workbench(workbench),
      m_feed(workbench.feed()),
      m_identifiers(m_feed.identifiers(), workbench.names()),
      m_idEdit(new QLineEdit(this)),
      m_textEdit(new QLineEdit(this)),
      m_findEdit(new QLineEdit(this)),
      m_counts(new QLabel(this)),
      m_tabs(new QTabWidget(this)),
      m_traceView(new QTableView(this)),
      m_identifierView(new QTableView(this))
{
    makeActions();
    makeTables();
    m_tabs->addTab(m_traceView, tr("T&race"));
    m_tabs->addTab(m_identifierView, tr("B&y identifier"));
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(makeFilterBar());
    layout->addWidget(m_tabs, 1);
    setFocusProxy(m_traceView);
    connect(m_tabs, &QTabWidget::currentChanged, this, [this] { setFocusProxy(m_tabs->currentWidget()); });
    connect(&m_countTimer, &QTimer::timeout, this, &CMessagePanel::showCounts);
    m_countTimer.start(COUNT_INTERVAL_MS);
    showCounts();
}

void CMessagePanel::makeActions()
{
    m_pause = makeAction(this, tr("&Pause"), Qt::Key_F8, &CMessagePanel::pause);
    m_pause->setCheckable(true);
    connect(&m_feed, &CMessageFeed::pausedChanged, m_pause, &QAction::setChecked);
    m_follow = new QAction(tr("F&ollow"), this);
    m_follow->setShortcut(Qt::Key_F9);
    m_follow->setCheckable(true);
    m_follow->setChecked(true);
    m_follow->setToolTip(
        tr("Keeps the newest message in view. Scrolling up turns it off; scrolling to the end turns it on."));
    m_clear = makeAction(this, tr("C&lear"), QKeySequence(QStringLiteral("Ctrl+L")), [this] { m_feed.clear(); });
    m_actions = {
        m_pause,
        m_follow,
        m_clear,
        makeAction(this, tr("&Find"), QKeySequence::Find, [this] { m_findEdit->setFocus(Qt::ShortcutFocusReason); }),
        makeAction(this, tr("Find ne&xt"), QKeySequence::FindNext, [this] { find(true); }),
        makeAction(this, tr("Find pre&vious"), QKeySequence::FindPrevious, [this] { find(false); }),
        makeAction(this, tr("Load &names of identifiers ..."), {},
                   [this] { loadNames(QFileDialog::getOpenFileName(this)); })};
    const std::pair<QString, CTraceModel::ETime> times[] = {
        {tr("Time of &day"), CTraceModel::ETime::eOfDay},
        {tr("Time since the &first message"), CTraceModel::ETime::eSinceStart},
        {tr("Time since the message &before"), CTraceModel::ETime::eSinceBefore}};
    auto* const group = new QActionGroup(this);
    for (const auto& [text, time] : times) {
        QAction* const action = makeAction(this, text, {}, [this, time = time] { m_feed.trace().setTime(time); });
        action->setCheckable(true);
        action->setChecked(time == CTraceModel::ETime::eOfDay);
        group->addAction(action);
    }
    m_times = group->actions();
}

/// Starts or ends a pause. When a log is shown, the user is asked first, because live messages replace it.
void CMessagePanel::pause(bool paused)
{
    const bool stays =
        !paused && !m_feed.log().isEmpty() &&
        QMessageBox::question(this, tr("Pause"), tr("Show live messages in place of %1?").arg(m_feed.log()),
                              QMessageBox::Ok | QMessageBox::Cancel) != QMessageBox::Ok;
    m_feed.setPaused(paused || stays);
    m_pause->setChecked(m_feed.isPaused());
}

QWidget* CMessagePanel::makeFilterBar()
{
    m_idEdit->setPlaceholderText(tr("all; example: 123  120:7F0"));
    m_textEdit->setPlaceholderText(tr("any text or data"));
    m_textEdit->setToolTip(tr("Shows only messages with this text in any column."));
    m_findEdit->setObjectName(QStringLiteral("Find"));
    m_findEdit->setPlaceholderText(tr("any text or data"));
    m_findEdit->setToolTip(tr("Finds messages with this text in any column. F3: next, Shift+F3: previous."));
    connect(m_findEdit, &QLineEdit::returnPressed, this, [this] { find(true); });
    connect(m_findEdit, &QLineEdit::textChanged, this, [this] { markWrong(*m_findEdit, false); });
    m_filterTimer.setSingleShot(true);
    m_filterTimer.setInterval(FILTER_DELAY_MS);
    connect(&m_filterTimer, &QTimer::timeout, this, &CMessagePanel::applyFilter);
    auto* const bar = new QWidget(this);
    auto* const layout = new QHBoxLayout(bar);
    layout->setContentsMargins(0, 0, 0, 0);
    for (const auto& [text, edit] : {std::pair(tr("Ide&ntifier:"), m_idEdit), std::pair(tr("Te&xt:"), m_textEdit),
                                     std::pair(tr("F&ind:"), m_findEdit)}) {
        edit->setClearButtonEnabled(true);
        layout->addWidget(makeLabel(text, edit));
        layout->addWidget(edit, 1);
    }
    for (const QLineEdit* const edit : {m_idEdit, m_textEdit}) {
        connect(edit, &QLineEdit::textChanged, &m_filterTimer, QOverload<>::of(&QTimer::start));
        connect(edit, &QLineEdit::returnPressed, this, &CMessagePanel::applyFilter);
    }
    auto* const corner = new QWidget(m_tabs); // in the empty part of the row of tabs
    auto* const beside = new QHBoxLayout(corner);
    beside->setContentsMargins(0, 0, 0, 0);
    beside->addWidget(m_counts);
    beside->addWidget(makeToolBar({m_pause, m_follow, m_clear}, corner));
    m_tabs->setCornerWidget(corner);
    return bar;
}

void CMessagePanel::makeTables()
{
    const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    const QString data = QStringLiteral("00 11 22 33 44 55 66 77  ");
    m_traceView->setFont(fixed);
    m_traceView->setObjectName(QStringLiteral("Trace"));
    setUpTable(*m_traceView, tr("Trace"), m_feed.trace(),
               {QStringLiteral("00:00:00.000000"), QStringLiteral("Some interface 1"), QStringLiteral("RX  "),
                QStringLiteral("7FF  "), data});
    m_identifierView->setFont(fixed);
    m_identifierView->setObjectName(QStringLiteral("Identifiers"));
    m_identifierView->setItemDelegateForColumn(CIdentifierModel::eData, new CChangedBytesDelegate(this));
    setUpTable(*m_identifierView, tr("Messages by identifier"), m_identifiers,
               {QStringLiteral("7FF  "), QStringLiteral("Some interface 1"), QStringLiteral("RX  "),
                QStringLiteral("1000000"), QStringLiteral("10000.0"), QStringLiteral("10000.0"),
                QStringLiteral("10000.0"), QStringLiteral("10000.0"), data, QStringLiteral("12345678"),
                QStringLiteral("00:00:00.000"), QStringLiteral("type 1, er")});
    // The columns that users need most come first.
    for (const int column : {CIdentifierModel::eAdmin, CIdentifierModel::eData}) {
        QHeaderView* const header = m_identifierView->horizontalHeader();
        header->moveSection(header->visualIndex(column), CIdentifierModel::eCount);
    }
    m_identifierView->setSortingEnabled(true);
    m_identifierView->sortByColumn(CIdentifierModel::eId, Qt::AscendingOrder);
    addRowActions(*m_traceView);
    addRowActions(*m_identifierView);
    followEnd();
}

const SBusRecord& CMessagePanel::recordOf(const QTableView& view, int row) const
{
    return &view == m_traceView
               ? m_feed.trace().record(row)
               : m_feed.identifiers().record(m_identifiers.mapToSource(m_identifiers.index(row, 0)).row());
}

void CMessagePanel::addRowActions(QTableView& view)
{
    const auto add = [this, &view](const QString& text, const std::function<void(const SBusRecord&)>& act) {
        view.addAction(makeAction(&view, text, {}, [this, &view, act] {
            if (view.currentIndex().isValid()) {
                act(recordOf(view, view.currentIndex().row()));
            }
        }));
    };
    add(tr("Show only this identifier"), [this](const auto& record) { m_idEdit->setText(idText(record.message)); });
    add(tr("Hide this identifier"), [this](const auto& record) {
        m_idEdit->setText(QStringLiteral("%1 %2~7FF").arg(m_idEdit->text(), idText(record.message)).trimmed());
    });
    add(tr("Add to the send list"), [this](const auto& record) {
        m_workbench.sendList().add({record.message, CSendList::DEFAULT_INTERVAL_MS, {}, {}});
    });
}

/// Selects the next or the previous row that contains the text to find; continues at the other end of the table.
void CMessagePanel::find(bool forward)
{
    auto& view = *(m_tabs->currentIndex() == 0 ? m_traceView : m_identifierView);
    const CMessageMatcher matcher({}, m_findEdit->text());
    const int count = view.model()->rowCount();
    const int current = view.currentIndex().isValid() ? view.currentIndex().row() : forward ? count - 1 : 0;
    for (int i = 1; i <= count; ++i) {
        const int row = (current + (forward ? i : count - i)) % count;
        if (matcher.matches(recordOf(view, row), m_workbench.names())) {
            m_follow->setChecked(false);
            view.selectRow(row);
            return;
        }
    }
    markWrong(*m_findEdit);
}

void CMessagePanel::loadNames(const QString& path)
{
    if (path.isEmpty()) {
        return;
    }
    if (const Failure failure = m_workbench.names().loadIds(path)) {
        m_workbench.warn(failure->text);
        return;
    }
    m_namesFile = path;
    const int width = m_traceView->fontMetrics().horizontalAdvance(QStringLiteral("123 Name in the list"));
    m_traceView->setColumnWidth(CTraceModel::eId, width);
    m_identifierView->setColumnWidth(CIdentifierModel::eId, width);
    applyFilter();
}

void CMessagePanel::followEnd()
{
    const auto& trace = m_feed.trace();
    QScrollBar* const bar = m_traceView->verticalScrollBar();
    const auto follow = [this] {
        if (m_follow->isChecked()) {
            m_traceView->scrollToBottom();
        }
    };
    connect(m_follow, &QAction::toggled, this, follow);
    connect(&trace, &QAbstractItemModel::rowsInserted, this, follow);
    connect(bar, &QScrollBar::rangeChanged, this, [this, follow](int /*minimum*/, int maximum) {
        m_lastRow = maximum;
        follow();
    });
    // If the range has changed, rows were added or the view was resized; if not, the user has scrolled.
    connect(bar, &QScrollBar::valueChanged, this, [this](int value) {
        if (m_traceView->verticalScrollBar()->maximum() == m_lastRow) {
            m_follow->setChecked(value == m_lastRow);
        }
    });
    // The rows that the user reads stay in place when older messages are removed.
    connect(&trace, &QAbstractItemModel::rowsRemoved, this, [this, bar](const QModelIndex&, int first, int last) {
        if (!m_follow->isChecked()) {
            bar->setValue(bar->value() - (last - first + 1));
        }
    });
    connect(&trace, &QAbstractItemModel::modelReset, m_traceView, &QTableView::scrollToBottom, Qt::QueuedConnection);
}

void CMessagePanel::applyFilter()
{
    m_filterTimer.stop();
    auto filters = readFilters(m_idEdit->text());
    if (filters) { // while the text is not a filter yet, the previous filter stays
        const CMessageMatcher matcher(*filters, m_textEdit->text());
        m_feed.trace().setMatcher(matcher);
        m_identifiers.setMatcher(matcher);
    }
    m_filterProblem = filters ? QString() : filters.problem().text;
    markWrong(*m_idEdit, !filters);
    m_idEdit->setToolTip(
        filters ? tr("Identifiers to show, hexadecimal: ID, LOW-HIGH, ID:MASK for all that equal ID in the\n"
                     "bits of MASK, ID~MASK for all but these. Separate several filters by blanks.")
                : m_filterProblem);
    showCounts();
}

void CMessagePanel::showCounts()
{
    if (!m_filterProblem.isEmpty()) {
        m_counts->setText(tr("wrong filter"));
    } else if (m_feed.isPaused()) {
        m_counts->setText(tr("%L1 waiting").arg(m_feed.waitingCount()));
    } else {
        const int shown = m_feed.trace().rowCount();
        const auto hidden = m_feed.trace().size() - static_cast<std::size_t>(shown);
        m_counts->setText(hidden == 0 ? tr("%L1 messages").arg(shown)
                                      : tr("%L1, %L2 hidden by the filter").arg(shown).arg(hidden));
    }
}

void CMessagePanel::loadState(QSettings& settings)
{
    m_idEdit->setText(settings.value(ID_FILTER).toString());
    m_textEdit->setText(settings.value(TEXT_FILTER).toString());
    loadNames(settings.value(NAMES_FILE).toString());
    m_tabs->setCurrentIndex(settings.value(TAB).toInt());
    applyFilter();
}

void CMessagePanel::saveState(QSettings& settings) const
{
    settings.setValue(ID_FILTER, m_idEdit->text());
    settings.setValue(TEXT_FILTER, m_textEdit->text());
    settings.setValue(NAMES_FILE, m_namesFile);
    settings.setValue(TAB, m_tabs->currentIndex());
}

} // namespace vexmor::Apps::Cimview
