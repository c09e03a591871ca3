#include "apps/cimview/interfaceList.h"

#include "apps/cimview/freeNames.h"
#include "apps/cimview/messageText.h"
#include "apps/common/failure.h"
#include "cim/canInterfacePlugin.h"

#include <QSet>
#include <QSettings>

#include <algorithm>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr int MAX_ADDED = 1000; ///< by one scan

/// Address, port and protocol as the user types them.
QString addressText(const Cim::CCommonInfo& info)
{
    QString address;
    QString port;
    Cim::CCommonInfo::EProtocolType protocol = Cim::CCommonInfo::eProtocolInvalid;
    return info.isIpPort() && info.ipAddress(address, port, protocol) ? info.port().section(QLatin1Char('='), 1)
                                                                      : info.port();
}
} // namespace

CInterfaceList::CInterfaceList(const std::vector<SPlugin>& plugins, CSourceNames& names, CMailbox& mailbox)
    : m_plugins(plugins), m_names(names), m_mailbox(mailbox)
{
}

CInterfaceList::~CInterfaceList()
{
    for (const auto& one : m_entries) { // all at once, not one after the other
        if (one->session) {
            one->session->disconnect(this);
            one->session->close();
        }
    }
}

// ---- Which interfaces there are ----

void CInterfaceList::loadStored()
{
    const QSettings keepsFileRead;
    for (const QString& name : storedNames()) {
        try {
            const Settings settings = storedSettings(name);
            auto canInterface = create(settings.value(StoreKey::PLUGIN_NAME));
            Apps::loadStored(*canInterface, name);
            insert(std::move(canInterface), true);
        } catch (const SFailure& failure) {
            Q_EMIT eventHappened({microsecondsNow(), EEvent::eResult, name, failure.code, 1, failure.text});
        }
    }
}

std::unique_ptr<Cim::CCanInterface> CInterfaceList::create(const QString& pluginName) const
{
    const SPlugin* const plugin = pluginName.isEmpty() ? &m_plugins.front() : pluginNamed(m_plugins, pluginName);
    if (plugin == nullptr) {
        failRefused(tr("The plugin %1 was not found.").arg(pluginName));
    }
    return std::unique_ptr<Cim::CCanInterface>(plugin->object->createInterface());
}

QString CInterfaceList::add(const QString& name, const Settings& settings, bool keep)
{
    if (name.isEmpty() || rowOf(name) >= 0) {
        return name.isEmpty() ? tr("An interface needs a name.") : tr("There is an interface '%1' already.").arg(name);
    }
    try {
        auto canInterface = create(QString());
        applySettings(*canInterface, settings);
        if (keep) {
            Apps::store(*canInterface, name);
        }
        Cim::CCommonInfo info = canInterface->commonInfo();
        info.setUniqueName(name);
        canInterface->setCommonInfo(info);
        insert(std::move(canInterface), keep);
    } catch (const SFailure& failure) {
        return failure.text;
    }
    return {};
}

void CInterfaceList::addFound(std::vector<std::unique_ptr<Cim::CCanInterface>> found)
{
    CFreeNames names;
    // Equal port texts: the same device, or another one at the same address, which is reached in the same way.
    QSet<QString> ports;
    for (const auto& one : m_entries) {
        names.take(one->canInterface->commonInfo().uniqueName());
        ports.insert(one->canInterface->commonInfo().port());
    }
    int count = 0;
    for (auto& canInterface : found) {
        Cim::CCommonInfo info = canInterface->commonInfo();
        if (ports.contains(info.port())) {
            continue;
        }
        ports.insert(info.port());
        if (++count <= MAX_ADDED) {
            info.setUniqueName(names.takeLike(info.uniqueName().isEmpty() ? addressText(info) : info.uniqueName()));
            canInterface->setCommonInfo(info);
            insert(std::move(canInterface), false);
        }
    }
    if (count > MAX_ADDED) {
        const QString text = tr("%1 more were found, too many to be added. Are they real?").arg(count - MAX_ADDED);
        Q_EMIT eventHappened({microsecondsNow(), EEvent::eNote, QString(), 0, 1, text});
    }
}

void CInterfaceList::insert(std::unique_ptr<Cim::CCanInterface> canInterface, bool isStored)
{
    auto made = std::make_unique<SEntry>();
    made->canInterface = std::move(canInterface);
    made->isStored = isStored;
    beginInsertRows({}, rowCount(), rowCount());
    m_entries.push_back(std::move(made));
    endInsertRows();
    Q_EMIT statesChanged();
}

void CInterfaceList::store(int row)
{
    SEntry& stored = entry(row);
    try {
        Apps::store(*stored.canInterface, name(row));
        stored.isStored = true;
    } catch (const SFailure& failure) {
        report(stored, EEvent::eResult, failure.code, failure.text);
    }
    showRow(stored);
    Q_EMIT statesChanged();
}

void CInterfaceList::remove(int row)
{
    SEntry& removed = entry(row);
    if (removed.state != EInterfaceState::eClosed) {
        return;
    }
    try {
        if (removed.isStored) {
            removeStored(name(row));
        }
    } catch (const SFailure& failure) {
        report(removed, EEvent::eResult, failure.code, failure.text);
        return;
    }
    beginRemoveRows({}, row, row);
    m_entries.erase(m_entries.begin() + row);
    endRemoveRows();
    Q_EMIT statesChanged();
}

bool CInterfaceList::setBaudrate(int row, int kbitPerSecond)
{
    if (state(row) != EInterfaceState::eClosed || !settingsOf(row).setBaudrate(kbitPerSecond)) {
        return false;
    }
    settingsChanged(row);
    return true;
}

void CInterfaceList::settingsChanged(int row)
{
    if (isStored(row)) {
        store(row);
    } else {
        showRow(entry(row));
    }
}

// ---- Sessions ----

void CInterfaceList::open(int row)
{
    SEntry& opened = entry(row);
    if (opened.state != EInterfaceState::eClosed) {
        return;
    }
    std::unique_ptr<Cim::CCanInterface> clone(opened.canInterface->clone());
    opened.session = std::make_unique<CSession>(std::move(clone), m_names.numberOf(name(row)), m_mailbox);
    const CSession* const session = opened.session.get();
    connect(session, &CSession::opened, this, [this, &opened](int code) { onOpened(opened, code); });
    connect(session, &CSession::statusTaken, this,
            [this, &opened](const SInterfaceStatus& status) { onStatus(opened, status); });
    connect(session, &CSession::refused, this, [this, &opened](int code) {
        report(opened, EEvent::eResult, code, opened.canInterface->errorCodeToString(code));
    });
    connect(session, &CSession::finished, this, [this, &opened] { onFinished(opened); });
    setState(opened, EInterfaceState::eOpening);
}

void CInterfaceList::close(int row)
{
    SEntry& closed = entry(row);
    if (closed.session && closed.state != EInterfaceState::eClosing) {
        closed.session->close();
        setState(closed, EInterfaceState::eClosing);
    }
}

void CInterfaceList::onOpened(SEntry& entry, int code)
{
    if (entry.state == EInterfaceState::eClosing) { // the user was faster
        return;
    }
    if (code != 0) {
        report(entry, EEvent::eResult, code, entry.canInterface->errorCodeToString(code));
        entry.session->close();
        setState(entry, EInterfaceState::eClosing);
        return;
    }
    report(entry, EEvent::eNote, 0, tr("Opened."));
    setState(entry, EInterfaceState::eConnected);
}

void CInterfaceList::onStatus(SEntry& entry, const SInterfaceStatus& status)
{
    if (entry.state == EInterfaceState::eClosing) {
        return;
    }
    Cim::CCommonInfo info = entry.canInterface->commonInfo();
    info.setFirmwareVersion(status.info.firmwareVersion());
    info.setInterfaceId(status.info.interfaceId());
    if (info != entry.canInterface->commonInfo()) {
        entry.canInterface->setCommonInfo(info);
    }
    entry.busload = status.busload;
    const bool connected = status.info.connectionState() == Cim::CCommonInfo::eConnected;
    setState(entry, connected ? EInterfaceState::eConnected : EInterfaceState::eWaiting);
    Q_EMIT busloadRead(info.uniqueName(), connected ? status.busload : 0);
}

void CInterfaceList::onFinished(SEntry& entry)
{
    if (entry.session) {
        entry.session.release()->deleteLater(); // it is what calls
    }
    entry.busload = 0;
    setState(entry, EInterfaceState::eClosed);
}

void CInterfaceList::setState(SEntry& entry, EInterfaceState state)
{
    const bool changed = entry.state != state;
    entry.state = state;
    showRow(entry);
    if (changed) {
        Q_EMIT statesChanged();
    }
}

void CInterfaceList::showRow(const SEntry& entry)
{
    for (int row = 0; row < rowCount(); ++row) {
        if (m_entries[static_cast<std::size_t>(row)].get() == &entry) {
            Q_EMIT dataChanged(index(row, 0), index(row, eColumnCount - 1));
        }
    }
}

void CInterfaceList::report(const SEntry& entry, EEvent kind, int number, const QString& text)
{
    Q_EMIT eventHappened({microsecondsNow(), kind, entry.canInterface->commonInfo().uniqueName(), number, 1, text});
}

bool CInterfaceList::isOpen(int row) const
{
    return state(row) == EInterfaceState::eConnected || state(row) == EInterfaceState::eWaiting;
}

CSession* CInterfaceList::session(const QString& name) const
{
    const int row = rowOf(name);
    return row >= 0 && isOpen(row) ? entry(row).session.get() : nullptr;
}

int CInterfaceList::activeCount() const
{
    return static_cast<int>(std::count_if(m_entries.begin(), m_entries.end(),
                                          [](const auto& one) { return one->state != EInterfaceState::eClosed; }));
}

SEvent CInterfaceList::eventOf(const SErrorRecord& error) const
{
    SEvent event{error.microseconds, EEvent::eInterfaceError, m_names.name(error.source), error.error, error.count, {}};
    const int row = rowOf(event.source);
    event.text = row < 0 ? QString() : settingsOf(row).interfaceErrorToString(error.error).trimmed();
    return event;
}

// ---- The table ----

QString CInterfaceList::name(int row) const
{
    return settingsOf(row).commonInfo().uniqueName();
}

int CInterfaceList::rowOf(const QString& name) const
{
    for (int row = 0; row < rowCount(); ++row) {
        if (this->name(row) == name) {
            return row;
        }
    }
    return -1;
}

int CInterfaceList::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_entries.size());
}

int CInterfaceList::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : eColumnCount;
}

QString CInterfaceList::stateText(const SEntry& entry) const
{
    switch (entry.state) {
    case EInterfaceState::eClosed:
        return tr("closed");
    case EInterfaceState::eOpening:
        return tr("opening ...");
    case EInterfaceState::eConnected:
        return tr("connected");
    case EInterfaceState::eWaiting:
        return tr("gateway away");
    case EInterfaceState::eClosing:
        return tr("closing ...");
    }
    return {};
}

QVariant CInterfaceList::data(const QModelIndex& index, int role) const
{
    const SEntry& shown = entry(index.row());
    const Cim::CCommonInfo& info = shown.canInterface->commonInfo();
    if (role == Qt::ToolTipRole) {
        return QStringList{info.description(), info.port(), info.interfaceId()}.join(QLatin1Char('\n')).trimmed();
    }
    if (role != Qt::DisplayRole) {
        return {};
    }
    switch (index.column()) {
    case eName:
        return info.uniqueName();
    case eType:
        return info.type();
    case eAddress:
        return addressText(info);
    case eFirmware:
        return info.firmwareVersion();
    case eState:
        return stateText(shown);
    case eBusload:
        return isOpen(index.row()) ? tr("%1 %").arg(shown.busload) : QString();
    case eBaudrate:
        return tr("%1 kbit/s").arg(shown.canInterface->baudrate());
    case eStored:
        return shown.isStored ? tr("yes") : tr("no");
    default:
        return {};
    }
}

QVariant CInterfaceList::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) {
        return {};
    }
    const QString titles[eColumnCount] = {tr("Name"),      tr("State"), tr("Bus load"), tr("Address"),
                                          tr("Baud rate"), tr("Type"),  tr("Firmware"), tr("Stored")};
    return titles[section];
}

} // namespace vexmor::Apps::Cimview
