#include "apps/cimview/sendPanel.h"

#include "apps/cimview/panelWidgets.h"
#include "apps/cimview/workbench.h"

#include <QtWidgets>

#include <algorithm>

namespace vexmor::Apps::Cimview
{
const QString LIST_TYPE = QStringLiteral("*.ini");

CSendPanel::CSendPanel(CWorkbench& workbench, QWidget* parent)
    : QWidget(parent),
      m_workbench(workbench),
      m_interface(new QComboBox(this)),
      m_add(new QPushButton(tr("Add to &list"), this)),
      m_stop(new QPushButton(tr("S&top all"), this)),
      m_id(new QLineEdit(this)), // made in the order in which Tab reaches the fields
      m_data(new QLineEdit(this)),
      m_send(new QPushButton(tr("&Send"), this)),
      m_table(new QTableView(this)),
      m_problem(new QLabel(this))
{
    makeWidgets();
    makeLayout();
    connectWidgets();
    showInterfaces();
    setFocusProxy(m_interface);
}

void CSendPanel::makeWidgets()
{
    const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    m_id->setPlaceholderText(QStringLiteral("123"));
    m_id->setToolTip(tr("Identifier, hexadecimal, 0 to 7FF"));
    m_data->setPlaceholderText(QStringLiteral("11 22 AA BB"));
    m_data->setToolTip(tr("Up to eight bytes, hexadecimal"));
    m_id->setFont(fixed);
    m_data->setFont(fixed);
    m_id->setMaximumWidth(QFontMetrics(fixed).horizontalAdvance(QStringLiteral("7FF")) * 3);
    m_table->setFont(fixed);
    setUpTable(*m_table, tr("Messages to send"), m_workbench.sendList(),
               {QString(), QStringLiteral("Some name"), QStringLiteral("7FF"),
                QStringLiteral("00 11 22 33 44 55 66 77"), QStringLiteral("36000"), QStringLiteral("100,000")});
    for (QAction* const action :
         {makeAction(m_table, tr("Send c&hosen"), QKeySequence(QStringLiteral("Ctrl+Return")),
                     [this] { sendSelected(); }),
          makeAction(m_table, tr("Send on the interface above"), {}, [this] { moveSelected(); }),
          makeAction(m_table, tr("Remove"), QKeySequence::Delete, [this] { removeSelected(); }),
          makeAction(m_table, tr("Load list ..."), {}, [this] { loadList(); }),
          makeAction(m_table, tr("Save list ..."), {}, [this] { saveList(); })}) {
        action->setShortcutContext(Qt::WidgetShortcut);
        m_table->addAction(action);
    }
    m_problem->setWordWrap(true);
    m_problem->setObjectName(QStringLiteral("Problem"));
}

void CSendPanel::makeLayout()
{
    auto* const place = new QHBoxLayout;
    place->addWidget(makeLabel(tr("&On:"), m_interface));
    place->addWidget(m_interface, 1);
    place->addWidget(m_add);
    place->addWidget(m_stop);
    auto* const typed = new QHBoxLayout;
    typed->addWidget(makeLabel(tr("I&D:"), m_id));
    typed->addWidget(m_id);
    typed->addWidget(makeLabel(tr("Dat&a:"), m_data));
    typed->addWidget(m_data, 2);
    typed->addWidget(m_send);
    auto* const layout = new QVBoxLayout(this);
    layout->addLayout(place);
    layout->addLayout(typed);
    layout->addWidget(m_table, 1);
    layout->addWidget(m_problem);
    m_problem->hide();
}

void CSendPanel::connectWidgets()
{
    CSendList& list = m_workbench.sendList();
    connect(m_send, &QPushButton::clicked, this, &CSendPanel::sendTyped);
    connect(m_id, &QLineEdit::returnPressed, this, &CSendPanel::sendTyped);
    connect(m_data, &QLineEdit::returnPressed, this, &CSendPanel::sendTyped);
    connect(m_id, &QLineEdit::textChanged, this, &CSendPanel::markTyped);
    connect(m_data, &QLineEdit::textChanged, this, &CSendPanel::markTyped);
    connect(m_interface, QOverload<int>::of(&QComboBox::activated), this, &CSendPanel::choose);
    connect(m_add, &QPushButton::clicked, this, &CSendPanel::addTyped);
    connect(m_stop, &QPushButton::clicked, &list, &CSendList::stopAll);
    connect(&list, &CSendList::cyclicChanged, this, &CSendPanel::setCyclic);
    connect(&list, &CSendList::refused, this, &CSendPanel::showProblem);
    connect(&m_workbench.interfaces(), &CInterfaceList::statesChanged, this, &CSendPanel::showInterfaces);
}

void CSendPanel::showInterfaces()
{
    const QStringList open = m_workbench.interfaces().openNames();
    const QString chosen = chosenInterface();
    m_interface->clear();
    for (const QString& name : open) {
        m_interface->addItem(name, name);
    }
    // An interface that was closed stays selected, so that no message goes to another bus by surprise.
    if (!chosen.isEmpty() && !open.contains(chosen)) {
        m_interface->addItem(tr("%1 (not open)").arg(chosen), chosen);
    }
    m_interface->setCurrentIndex(std::max(0, m_interface->findData(chosen)));
    m_interface->setEnabled(m_interface->count() > 0);
    m_workbench.sendList().stopAllBut(open);
    choose();
}

void CSendPanel::chooseInterface(const QString& name)
{
    m_interface->setCurrentIndex(std::max(0, m_interface->findData(name)));
    choose();
}

QString CSendPanel::chosenInterface() const
{
    return m_interface->currentData().toString();
}

void CSendPanel::choose()
{
    m_workbench.sendList().setTarget(chosenInterface());
}

/// Marks invalid fields while the user types. A single digit at the end is accepted, as a second one may follow.
void CSendPanel::markTyped()
{
    const QString zero = QStringLiteral("0");
    const QString data = m_data->text();
    markWrong(*m_id, !m_id->text().isEmpty() && !readMessage(m_id->text(), QString()));
    markWrong(*m_data, !readMessage(zero, data) && !readMessage(zero, data + zero));
    showProblem(QString());
}

std::optional<Cim::CCanMessage> CSendPanel::typedMessage()
{
    Result<Cim::CCanMessage> message = readMessage(m_id->text(), m_data->text());
    showProblem(message ? QString() : message.problem().text);
    return message ? std::optional(*message) : std::nullopt;
}

void CSendPanel::sendTyped()
{
    if (const auto message = typedMessage()) {
        showProblem(m_workbench.interfaces().send(chosenInterface(), *message).value_or(SProblem()).text);
    }
}

void CSendPanel::addTyped()
{
    if (const auto message = typedMessage()) {
        m_workbench.sendList().add({*message, CSendList::DEFAULT_INTERVAL_MS, {}, chosenInterface()});
    }
}

void CSendPanel::sendSelected()
{
    const CSendList& list = m_workbench.sendList();
    QStringList problems; // of the first message as well, when the last one could be sent
    for (const int row : selectedRows(*m_table)) {
        const SSendItem& item = list.item(row);
        problems += m_workbench.interfaces().send(list.interfaceOf(item), item.message).value_or(SProblem()).text;
    }
    problems.removeDuplicates();
    problems.removeAll(QString());
    showProblem(problems.join(QLatin1Char('\n')));
}

void CSendPanel::moveSelected()
{
    CSendList& list = m_workbench.sendList();
    for (const int row : selectedRows(*m_table)) {
        list.setData(list.index(row, CSendList::eInterface), chosenInterface(), Qt::EditRole);
    }
}

void CSendPanel::removeSelected()
{
    const QList<int> rows = selectedRows(*m_table);
    // The last row is removed first, so that the rows before it keep their numbers.
    std::for_each(rows.rbegin(), rows.rend(), [this](int row) { m_workbench.sendList().remove(row); });
}

void CSendPanel::loadList()
{
    const QString path = QFileDialog::getOpenFileName(this, tr("Load list"), QString(), LIST_TYPE);
    if (path.isEmpty()) {
        return;
    }
    QSettings file(path, QSettings::IniFormat);
    const int before = m_workbench.sendList().rowCount();
    m_workbench.sendList().load(file);
    showProblem(m_workbench.sendList().rowCount() > before ? QString()
                                                           : tr("%1 contains no messages to send").arg(path));
}

void CSendPanel::saveList()
{
    const QString path = chooseFileToWrite(this, tr("Save list"), QStringLiteral("messages"), LIST_TYPE);
    if (path.isEmpty()) {
        return;
    }
    QSettings file(path, QSettings::IniFormat);
    m_workbench.sendList().save(file);
    file.sync();
    showProblem(file.status() == QSettings::NoError ? QString() : tr("%1 cannot be written").arg(path));
}

void CSendPanel::setCyclic(int key, const QString& interface, const Cim::CCanMessage& message, int milliseconds)
{
    const CInterfaceList& interfaces = m_workbench.interfaces();
    if (const int row = interfaces.rowOf(interface); row >= 0) {
        interfaces.at(row).setCyclic(key, message, milliseconds);
    }
    showProblem(QString());
}

void CSendPanel::showProblem(const QString& text)
{
    markWrong(*m_problem); // the palette may have changed
    m_problem->setText(text);
    m_problem->setVisible(!text.isEmpty());
}

} // namespace vexmor::Apps::Cimview
