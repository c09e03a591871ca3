#pragma once

#include "apps/cimview/busloadHistory.h"
#include "apps/cimview/eventModel.h"
#include "apps/cimview/interfaceList.h"
#include "apps/cimview/messageFeed.h"
#include "apps/cimview/sendList.h"
#include "apps/cimview/sourceNames.h"
#include "apps/host/clock.h"
#include "apps/host/embeddedSim.h"
#include "apps/host/interfaceScan.h"
#include "apps/host/logRecorder.h"
#include "apps/host/mailbox.h"
#include "apps/host/sessionStatistics.h"

#include <QObject>
#include <QTimer>

#include <vector>

namespace vexmor::Apps::Cimview
{

/// Everything that the window shows, without widgets, and the flow of data between the parts: 25 times a second, it
/// takes the messages and errors out of the mailbox of the interfaces' threads and adds them to the models. Window
/// thread only.
class CWorkbench : public QObject
{
    Q_OBJECT

public:
    /// `plugins` must not be empty and must outlive the workbench.
    explicit CWorkbench(const std::vector<SPlugin>& plugins);

    CSourceNames& names() { return m_names; }
    CInterfaceList& interfaces() { return m_interfaces; }
    const CInterfaceScan& scan() const { return m_scan; }
    CMessageFeed& feed() { return m_feed; }
    CEventModel& events() { return m_events; }
    CSendList& sendList() { return m_sendList; }
    CLogRecorder& recorder() { return m_recorder; }
    const CBusloadHistory& busloads() const { return m_busloads; }
    /// Number of messages fetched so far.
    std::uint64_t fetched() const { return m_fetched; }

    /// Starts a simulated gateway in this program, puts it into the list over both of its transports, and opens the
    /// first. An empty `logFile` stands for generated traffic. Once.
    Failure simulate(const QString& logFile);
    CEmbeddedSim& sim() { return m_sim; }
    /// Starts a scan of the network, unless one is running; an event reports what prevents it.
    void startScan();
    /// What happened since the program was started, as a text for the user.
    QString statistics() const;
    /// Adds a text to the event log.
    void note(const QString& text);
    /// The same about something that was lost or did not work: counted as unread.
    void warn(const QString& text);

Q_SIGNALS:
    /// A scan has ended, and has added so many interfaces behind those of before.
    void scanEnded(int added);
    /// How a task goes on that takes some time; without an end: until the next text.
    void progressed(const QString& text, bool isEnd);

private:
    void addFound();
    void fetch();
    void reportRefused();
    void sampleStates();

    CEmbeddedSim m_sim; ///< outlives the interfaces that use it
    CSourceNames m_names;
    const std::shared_ptr<CMailbox> m_mailbox = std::make_shared<CMailbox>();
    CLogRecorder m_recorder{QStringLiteral("cimview-")};
    CInterfaceList m_interfaces;
    CInterfaceScan m_scan;
    CMessageFeed m_feed;
    CEventModel m_events;
    CSendList m_sendList{[this](const QString& name) { return m_interfaces.sendObstacle(name); }};
    CBusloadHistory m_busloads;
    CSessionStatistics m_statistics{microsecondsNow()};
    QTimer m_fetchTimer;
    QTimer m_sampleTimer;
    SDelivery m_delivery;
    std::uint64_t m_fetched = 0;
};

} // namespace vexmor::Apps::Cimview
