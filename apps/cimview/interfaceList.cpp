#include "apps/cimview/interfaceList.h"

#include "apps/host/interfaceStore.h"
#include "cim/canInterfacePlugin.h"

#include <QCollator>
#include <QHash>
#include <QSet>

#include <algorithm>
#include <utility>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr int MAX_ADDED = 1000; ///< Maximum number of interfaces that one scan adds.

/// Returns address, port and protocol in the form in which the user types them.
QString addressText(const Cim::CCommonInfo& info)
{
    return info.isIpPort() ? info.port().section(QLatin1Char('='), 1) : info.port();
}

/// Returns the wanted name or, when it is in use, the name with the first free number from 2 on: "hall (2)". `names`
/// contains the names in use, each with the number that was assigned last, so that no number is tried twice.
QString freeName(QHash<QString, int>& names, const QString& wanted)
{
    QString name = wanted;
    while (names.contains(name)) {
        name = QStringLiteral("%1 (%2)").arg(wanted, QString::number(++names[wanted]));
    }
    names.insert(name, 1);
    return name;
}
} // namespace

CInterfaceList::CInterfaceList(const std::vector<SPlugin>& plugins, CSourceNames& names,
                               std::shared_ptr<CMailbox> mailbox)
    : CTableModel({tr("Name"), tr("State"), tr("Bus load"), tr("Address"), tr("Baud rate"), tr("Type"), tr("Firmware"),
                   tr("Stored")}),
      m_plugins(plugins),
      m_names(names),
      m_mailbox(std::move(mailbox))
{
}

CInterfaceList::~CInterfaceList()
{
    for (const auto& one : m_rows) { // closing waits for no gateway, so all interfaces close at the same time
        one->disconnect(this);
        one->close();
    }
}

// ---- The interfaces in the list ----

void CInterfaceList::loadStored()
{
    CInterfaceStore store;
    if (const Failure failure = store.failure()) {
        Q_EMIT eventRaised(eventNow(EEvent::eWarning, failure->text));
    }
    for (const QString& name : store.names()) {
        auto canInterface = create(store.settings(name).value(StoreKey::PLUGIN_NAME));
        const Failure failure = canInterface ? CInterfaceStore::load(**canInterface, name) : canInterface.problem();
        if (failure) {
            Q_EMIT eventRaised(eventNow(EEvent::eResult, failure->text, name, failure->code));
        } else {
            insert(std::move(*canInterface), true);
        }
    }
}

Result<std::unique_ptr<Cim::CCanInterface>> CInterfaceList::create(const QString& pluginName) const
{
    const SPlugin* const plugin = pluginNamed(m_plugins, pluginName);
    if (plugin == nullptr) {
        return SProblem{tr("The plugin %1 was not found.").arg(pluginName)};
    }
    return std::unique_ptr<Cim::CCanInterface>(plugin->object->createInterface());
}

Failure CInterfaceList::add(const QString& name, const Settings& settings, bool keep)
{
    if (name.isEmpty()) {
        return wrongUsage(tr("An interface needs a name."));
    }
    if (rowOf(name) >= 0) {
        return wrongUsage(tr("An interface '%1' exists already. Choose another name.").arg(name));
    }
    auto canInterface = create(QString());
    Failure failure = applySettings(**canInterface, settings);
    if (!failure && keep) {
        failure = CInterfaceStore().save(**canInterface, name);
    }
    if (!failure) {
        setUniqueName(**canInterface, name);
        insert(std::move(*canInterface), keep);
    }
    return failure;
}

std::pair<int, int> CInterfaceList::addFound(std::vector<std::unique_ptr<Cim::CCanInterface>> found)
{
    QHash<QString, int> names;
    // Interfaces with equal port texts have the same address and protocol, so only one of them is added.
    QSet<QString> ports;
    QSet<QString> foundPorts;
    for (const auto& one : m_rows) {
        names.insert(one->info().uniqueName(), 1);
        ports.insert(one->info().port());
    }
    int count = 0;
    for (auto& canInterface : found) {
        Cim::CCommonInfo info = canInterface->commonInfo();
        foundPorts.insert(info.port());
        if (ports.contains(info.port())) {
            continue;
        }
        ports.insert(info.port());
        if (++count <= MAX_ADDED) {
            info.setUniqueName(freeName(names, info.uniqueName().isEmpty() ? addressText(info) : info.uniqueName()));
            canInterface->setCommonInfo(info);
            insert(std::move(canInterface), false);
        }
    }
    if (count > MAX_ADDED) {
        const QString text = tr("Too many interfaces found; %1 were not added. Check which devices answer.");
        Q_EMIT eventRaised(eventNow(EEvent::eWarning, text.arg(count - MAX_ADDED)));
    }
    return {static_cast<int>(foundPorts.size()), std::min(count, MAX_ADDED)};
}

void CInterfaceList::insert(std::unique_ptr<Cim::CCanInterface> canInterface, bool isStored)
{
    auto made = std::make_unique<CManagedInterface>(std::move(canInterface), isStored, m_names, m_mailbox);
    CManagedInterface* const one = made.get();
    connect(one, &CManagedInterface::changed, this, [this, one] {
        const int row = rowOf(*one);
        Q_EMIT dataChanged(index(row, 0), index(row, eColumnCount - 1));
    });
    connect(one, &CManagedInterface::stateChanged, this, &CInterfaceList::statesChanged);
    connect(one, &CManagedInterface::eventRaised, this, &CInterfaceList::eventRaised);
    beginInsertRows({}, rowCount(), rowCount());
    m_rows.push_back(std::move(made));
    endInsertRows();
    Q_EMIT statesChanged();
}

void CInterfaceList::remove(int row)
{
    if (!at(row).isClosed() || !at(row).removeFromStore()) {
        return;
    }
    beginRemoveRows({}, row, row);
    m_rows.erase(m_rows.begin() + row);
    endRemoveRows();
    Q_EMIT statesChanged();
}

int CInterfaceList::rowOf(const CManagedInterface& wanted) const
{
    const auto isWanted = [&wanted](const auto& one) { return one.get() == &wanted; };
    return static_cast<int>(std::find_if(m_rows.begin(), m_rows.end(), isWanted) - m_rows.begin());
}

QStringList CInterfaceList::openNames() const
{
    QStringList names;
    for (const auto& one : m_rows) {
        if (one->isOpen()) {
            names.append(one->name());
        }
    }
    return names;
}

Failure CInterfaceList::sendObstacle(const QString& name) const
{
    const int row = rowOf(name);
    return row < 0 ? wrongUsage(tr("Nothing is sent: open an interface first.")) : at(row).sendObstacle();
}

Failure CInterfaceList::send(const QString& name, const Cim::CCanMessage& message) const
{
    const int row = rowOf(name);
    return row < 0 ? sendObstacle(name) : at(row).send(message);
}

SEvent CInterfaceList::eventOf(const SErrorRecord& error) const
{
    const QString name = m_names.name(error.source);
    const int row = rowOf(name);
    const QString text = row < 0 ? QString() : at(row).settings().interfaceErrorToString(error.error).trimmed();
    return {error.microseconds, EEvent::eInterfaceError, name, error.error, error.count, text};
}

void CInterfaceList::noteErrors(const SDelivery& delivery)
{
    for (const auto& one : m_rows) {
        const std::uint16_t source = m_names.numberOf(one->name());
        const auto isReceived = [source](const auto& record) { return record.source == source && !record.sent; };
        if (one->hasError() && std::any_of(delivery.records.begin(), delivery.records.end(), isReceived)) {
            one->setError({});
        }
        for (const SErrorRecord& error : delivery.errors) { // an error counts as newer than the messages
            if (error.source == source && one->status().hasLink()) {
                one->setError(eventOf(error).text.section(QLatin1Char('\n'), 0, 0).remove(QLatin1Char('.')));
            }
        }
    }
}

SEvent CInterfaceList::eventOf(const SBusRecord& refused) const
{
    const QString name = m_names.name(refused.source);
    const int row = rowOf(name);
    const QString text = row < 0 ? QString() : at(row).settings().errorCodeToString(refused.code);
    return {refused.microseconds, EEvent::eResult, name, refused.code, 1, text};
}

void CInterfaceList::refreshStates()
{
    if (!m_rows.empty()) {
        Q_EMIT dataChanged(index(0, eState), index(rowCount() - 1, eState));
    }
}

// ---- The table ----

int CInterfaceList::rowOf(const QString& name) const
{
    for (int row = 0; row < rowCount(); ++row) {
        if (at(row).name() == name) {
            return row;
        }
    }
    return -1;
}

QString CInterfaceList::cellText(const CManagedInterface& shown, int column)
{
    const Cim::CCommonInfo& info = shown.info();
    switch (column) {
    case eName:
        return info.uniqueName();
    case eType:
        return info.type();
    case eAddress:
        return addressText(info);
    case eFirmware:
        return info.firmwareVersion();
    case eState:
        return shown.stateText();
    case eBusload:
        return shown.status().busload ? tr("%1 %").arg(*shown.status().busload) : QString();
    case eBaudrate:
        return shown.settings().baudrate() == 0 ? tr("unchanged") : tr("%1 kbit/s").arg(shown.settings().baudrate());
    case eStored:
        return shown.isStored() ? tr("yes") : tr("no");
    default:
        return {};
    }
}

QVariant CInterfaceList::data(const QModelIndex& index, int role) const
{
    const CManagedInterface& shown = at(index.row());
    if (role == Qt::ToolTipRole) {
        const Cim::CCommonInfo& info = shown.info();
        const QString reason = shown.openFailure() ? shown.openFailure()->text : shown.status().reason;
        return QStringList{info.description(), info.port(), info.interfaceId(), shown.stateText(), reason}
            .join(QLatin1Char('\n'))
            .trimmed();
    }
    if (role == MARK_ROLE && index.column() == eState) {
        return static_cast<int>(shown.stateMark());
    }
    return role == Qt::DisplayRole ? cellText(shown, index.column()) : QVariant();
}

void CInterfaceList::sort(int column, Qt::SortOrder order)
{
    if (column < 0) {
        return;
    }
    Q_EMIT layoutAboutToBeChanged();
    const QModelIndexList before = persistentIndexList();
    std::vector<const CManagedInterface*> shown;
    for (const QModelIndex& index : before) {
        shown.push_back(&at(index.row()));
    }
    QCollator natural; // sorts gateway 10 after gateway 9
    natural.setNumericMode(true);
    std::stable_sort(m_rows.begin(), m_rows.end(), [&](const auto& one, const auto& other) {
        const int comparison = natural.compare(cellText(*one, column), cellText(*other, column));
        return order == Qt::AscendingOrder ? comparison < 0 : comparison > 0;
    });
    for (int i = 0; i < before.size(); ++i) {
        changePersistentIndex(before.at(i), index(rowOf(*shown[static_cast<std::size_t>(i)]), before.at(i).column()));
    }
    Q_EMIT layoutChanged();
}

} // namespace vexmor::Apps::Cimview
