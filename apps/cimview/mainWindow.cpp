#include "apps/cimview/mainWindow.h"

#include "apps/cimview/busloadPlot.h"
#include "apps/cimview/colours.h"
#include "apps/cimview/eventPanel.h"
#include "apps/cimview/interfacePanel.h"
#include "apps/cimview/logActions.h"
#include "apps/cimview/messagePanel.h"
#include "apps/cimview/panelWidgets.h"
#include "apps/cimview/sendPanel.h"
#include "apps/cimview/workbench.h"

#include <QtWidgets>

namespace vexmor::Apps::Cimview
{
namespace
{
const QString GROUP = QStringLiteral("Cimview");
const QString GEOMETRY = QStringLiteral("Geometry");
const QString STATE = QStringLiteral("WindowState");
/// Suffix of the object name of an action that folds a panel; the name of the panel stands before it.
const QString FOLDED = QStringLiteral("Folded");
/// Names of the tables whose columns are saved; also the keys in the settings.
const QString COLUMNS[] = {QStringLiteral("InterfaceColumns"), QStringLiteral("Trace"), QStringLiteral("Identifiers")};
constexpr int RATE_INTERVAL_MS = 1000;
constexpr int RESULT_MS = 10000; ///< Time for which the status bar shows the result of a task.
constexpr QSize INITIAL_SIZE(1500, 900);
constexpr QSize REPORT_SIZE(560, 400);
constexpr QSize FRAME_SIZE(20, 60); ///< Approximate size of what the window manager adds around the window.

/// Gives screen readers the name of the program, not the name of the settings store.
struct SAccessibleApplication : QAccessibleApplication {
    QString text(QAccessible::Text text) const override
    {
        return text == QAccessible::Name ? QGuiApplication::applicationDisplayName()
                                         : QAccessibleApplication::text(text);
    }
};

QAccessibleInterface* describeApplication(const QString& /*className*/, QObject* object)
{
    return object == QCoreApplication::instance() ? new SAccessibleApplication : nullptr;
}
} // namespace

CMainWindow::CMainWindow(CWorkbench& workbench)
    : m_workbench(workbench),
      m_interfaces(new CInterfacePanel(workbench)),
      m_messages(new CMessagePanel(workbench)),
      m_send(new CSendPanel(workbench)),
      m_events(new CEventPanel(workbench.events())),
      m_logs(new CLogActions(workbench, this)),
      m_rate(new QLabel),
      m_unread(new QLabel),
      m_alone(new QAction(tr("Messages a&lone"), this)),
      m_dark(new QAction(tr("D&ark"), this))
{
    setWindowTitle(tr("CAN interfaces"));
    setCentralWidget(m_messages);
    setAcceptDrops(true); // a log file may be dropped on the window
    setDockNestingEnabled(true);
    QDockWidget* const interfaces = addPanel(QStringLiteral("Interfaces"), tr("Interfaces"), m_interfaces);
    QDockWidget* const plot =
        addPanel(QStringLiteral("Busload"), tr("Bus load"), new CBusloadPlot(workbench.busloads()));
    QDockWidget* const send = addPanel(QStringLiteral("Send"), tr("Send"), m_send);
    connect(m_interfaces, &CInterfacePanel::sendTargetChosen, m_send, &CSendPanel::chooseInterface);
    m_eventDock = addPanel(QStringLiteral("Events"), tr("Events"), m_events);
    tabifyDockWidget(send, m_eventDock);
    connect(m_eventDock, &QDockWidget::visibilityChanged, m_events, &CEventPanel::setInView);
    makeMenus();

    statusBar()->addWidget(m_rate);
    statusBar()->addPermanentWidget(m_logs->makeReplayBar());
    statusBar()->addPermanentWidget(m_unread);
    connect(&workbench.feed(), &CMessageFeed::logChanged, this, [this](const QString& log) {
        setWindowTitle(log.isEmpty() ? tr("CAN interfaces") : tr("%1 - CAN interfaces").arg(log));
    });
    connect(&workbench, &CWorkbench::progressed, this,
            [this](const QString& text, bool isEnd) { statusBar()->showMessage(text, isEnd ? RESULT_MS : 0); });
    connect(&m_rateTimer, &QTimer::timeout, this, &CMainWindow::showRate);
    m_rateTimer.start(RATE_INTERVAL_MS);
    connect(&workbench.events(), &CEventModel::unreadChanged, this, &CMainWindow::showUnread);
    showUnread();
    resize(INITIAL_SIZE.boundedTo(screen()->availableSize() - FRAME_SIZE));
    resizeDocks({interfaces}, {width() * 3 / 8}, Qt::Horizontal);
    resizeDocks({interfaces, plot, send}, {5, 3, 7}, Qt::Vertical);
    send->raise(); // in front, unless the saved state has another panel there
    loadState();
}

CMainWindow::~CMainWindow() = default;

void CMainWindow::prepareApplication()
{
    QCoreApplication::setOrganizationName(QStringLiteral("Vexmor"));
    QCoreApplication::setApplicationName(QStringLiteral("Cim")); // names the store that all host applications share
    QGuiApplication::setApplicationDisplayName(QStringLiteral("cimview"));
    QGuiApplication::setDesktopFileName(QStringLiteral("cimview"));
    QAccessible::installFactory(&describeApplication);
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0) // Qt 6 always does this
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
#endif
}

/// Adds a panel beside the messages, below the other panels.
QDockWidget* CMainWindow::addPanel(const QString& name, const QString& title, QWidget* panel)
{
    panel->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Ignored); // so that it can be folded down to its title
    auto* const dock = new QDockWidget(title, this);
    dock->setObjectName(name); // the key of the panel in the saved state
    dock->setWidget(panel);
    makeTitle(*dock);
    addDockWidget(Qt::RightDockWidgetArea, dock);
    return dock;
}

/// Gives a panel a title bar with buttons that fold and hide it. Panels that share a place as tabs are folded together.
void CMainWindow::makeTitle(QDockWidget& dock)
{
    auto* const fold = new QAction(this);
    fold->setObjectName(dock.objectName() + FOLDED);
    fold->setCheckable(true);
    m_savedOptions.append(fold);
    QToolBar* const title = makeToolBar({fold, makeAction(&dock, tr("Hide"), {}, [&dock] { dock.hide(); })}, &dock);
    dock.setTitleBarWidget(title);
    const auto showTitle = [&dock, fold] {
        const QString arrow = fold->isChecked() ? QStringLiteral("\u25B8 ") : QStringLiteral("\u25BE ");
        fold->setText(arrow + dock.windowTitle());
    };
    connect(fold, &QAction::toggled, &dock, [this, &dock, title, fold, showTitle](bool isFolded) {
        if (isFolded && dock.isVisible()) { // a panel that was never visible has no height yet
            fold->setData(dock.height());
        }
        showTitle();
        dock.widget()->setEnabled(!isFolded); // not hidden, because that would narrow the panels above and below
        dock.setMaximumHeight(isFolded ? title->sizeHint().height() : QWIDGETSIZE_MAX);
        for (const QDockWidget* const other : tabifiedDockWidgets(&dock)) {
            findChild<QAction*>(other->objectName() + FOLDED)->setChecked(isFolded);
        }
        if (!isFolded) {
            const int height = fold->data().isValid() ? fold->data().toInt() : dock.widget()->sizeHint().height();
            resizeDocks({&dock}, {height}, Qt::Vertical);
        }
    });
    connect(&dock, &QDockWidget::windowTitleChanged, fold, showTitle);
    showTitle();
}

void CMainWindow::makeMenus()
{
    QMenu* const file = menuBar()->addMenu(tr("&File"));
    file->addActions(m_logs->actions());
    file->addSeparator();
    file->addAction(makeAction(this, tr("&Quit"), QKeySequence(QStringLiteral("Ctrl+Q")), [this] {
        if (m_logs->mayDiscardTrace()) {
            close();
        }
    }));

    menuBar()->addMenu(tr("&Interface"))->addActions(m_interfaces->interfaceActions());

    QMenu* const messages = menuBar()->addMenu(tr("&Messages"));
    messages->addActions(m_messages->messageActions());
    messages->addSeparator();
    messages->addActions(m_messages->timeActions());
    messages->addSeparator();
    messages->addAction(tr("&Statistics ..."), this, &CMainWindow::showStatistics);

    makeViewMenu();
    menuBar()->addMenu(tr("&Help"))->addAction(tr("&About"), this, [this] {
        QMessageBox::about(this, windowTitle(),
                           tr("cimview %1: CAN interfaces of T93 gateways in a window.\n"
                              "User guide: docs/cimview.md in the source.")
                               .arg(QStringLiteral(CIM_VERSION)));
    });
}

void CMainWindow::makeViewMenu()
{
    QMenu* const view = menuBar()->addMenu(tr("&View"));
    const QList<QDockWidget*> docks = findChildren<QDockWidget*>();
    int number = 1;
    for (QDockWidget* const dock : docks) {
        QAction* const action = view->addAction(dock->windowTitle(), [this, dock] {
            findChild<QAction*>(dock->objectName() + FOLDED)->setChecked(false);
            dock->show();
            dock->raise();
            dock->widget()->setFocus(Qt::ShortcutFocusReason);
        });
        action->setShortcut(QKeySequence(QStringLiteral("Ctrl+%1").arg(number++)));
    }
    QAction* const toMessages = view->addAction(tr("Messages"), [this] { m_messages->setFocus(); });
    toMessages->setShortcut(QKeySequence(QStringLiteral("Ctrl+0")));
    view->addSeparator();
    QMenu* const shown = createPopupMenu();
    shown->setTitle(tr("&Shown panels"));
    view->addMenu(shown);
    view->addMenu(tr("&Folded panels"))->addActions(m_savedOptions);
    m_savedOptions += QList<QAction*>{m_alone, m_dark} + m_logs->choices();
    m_alone->setObjectName(QStringLiteral("MessagesAlone"));
    m_dark->setObjectName(QStringLiteral("Dark"));
    m_alone->setCheckable(true);
    m_alone->setShortcut(Qt::Key_F11);
    connect(m_alone, &QAction::toggled, this, &CMainWindow::showAlone);
    view->addAction(m_alone);
    m_dark->setCheckable(true);
    connect(m_dark, &QAction::toggled, this, &setDark);
    view->addAction(m_dark);
}

/// Hides all panels, or shows them again at their previous places.
void CMainWindow::showAlone(bool alone)
{
    if (!alone) {
        restoreState(m_panels);
        return;
    }
    m_panels = QMainWindow::saveState();
    for (QDockWidget* const dock : findChildren<QDockWidget*>()) {
        dock->hide();
    }
}

void CMainWindow::showStatistics()
{
    QInputDialog dialog(this);
    dialog.setOption(QInputDialog::UsePlainTextEditForTextInput);
    dialog.setWindowTitle(tr("Statistics"));
    dialog.setLabelText(tr("Since the start of the program:"));
    dialog.setTextValue(m_workbench.statistics());
    dialog.findChild<QPlainTextEdit*>()->setTabChangesFocus(true); // to the buttons
    dialog.setOkButtonText(tr("Copy"));
    dialog.setCancelButtonText(tr("Close"));
    dialog.resize(REPORT_SIZE);
    if (dialog.exec() == QDialog::Accepted) {
        QApplication::clipboard()->setText(dialog.textValue());
    }
}

void CMainWindow::showUnread()
{
    const int unread = m_workbench.events().unread(); // a visible panel may have marked the events as read
    m_eventDock->setWindowTitle(unread == 0 ? tr("Events") : tr("Events (%1 new)").arg(unread));
    m_unread->setText(unread == 0 ? QString() : unread == 1 ? tr("1 new error") : tr("%1 new errors").arg(unread));
}

void CMainWindow::showRate()
{
    const std::uint64_t fetched = m_workbench.fetched();
    const std::uint64_t rate = (fetched - m_fetched) * 1000 / RATE_INTERVAL_MS;
    const CLogRecorder& recorder = m_workbench.recorder();
    const QString recording =
        recorder.isRunning() ? tr(", recording to %1").arg(QFileInfo(recorder.fileName()).fileName()) : QString();
    m_rate->setText(tr("%L1 messages/s, %L2 in total").arg(rate).arg(fetched) + recording);
    m_fetched = fetched;
}

void CMainWindow::loadState()
{
    QSettings settings;
    settings.beginGroup(GROUP);
    restoreGeometry(settings.value(GEOMETRY).toByteArray());
    restoreState(settings.value(STATE).toByteArray());
    for (QAction* const action : m_savedOptions) {
        action->setChecked(settings.value(action->objectName()).toBool());
    }
    m_messages->loadState(settings);
    for (const QString& key : COLUMNS) {
        findChild<QTableView*>(key)->horizontalHeader()->restoreState(settings.value(key).toByteArray());
    }
    m_workbench.sendList().load(settings);
}

void CMainWindow::saveState()
{
    QSettings settings;
    settings.beginGroup(GROUP);
    settings.setValue(GEOMETRY, saveGeometry());
    settings.setValue(STATE, m_alone->isChecked() ? m_panels : QMainWindow::saveState());
    for (const QAction* const action : m_savedOptions) {
        settings.setValue(action->objectName(), action->isChecked());
    }
    m_messages->saveState(settings);
    for (const QString& key : COLUMNS) {
        settings.setValue(key, findChild<QTableView*>(key)->horizontalHeader()->saveState());
    }
    m_workbench.sendList().save(settings);
}

void CMainWindow::dragEnterEvent(QDragEnterEvent* event)
{
    if (event->mimeData()->urls().value(0).isLocalFile()) {
        event->acceptProposedAction();
    }
}

void CMainWindow::dropEvent(QDropEvent* event)
{
    if (m_logs->mayDiscardTrace()) {
        m_logs->load(event->mimeData()->urls().value(0).toLocalFile());
    }
}

void CMainWindow::closeEvent(QCloseEvent* event)
{
    if (event->spontaneous() && !m_logs->mayDiscardTrace()) { // closed by the user, not by a signal to the program
        event->ignore();
        return;
    }
    saveState();
    QMainWindow::closeEvent(event);
}

} // namespace vexmor::Apps::Cimview
