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

/// Owns all models of the window, without widgets, and moves data between them: 25 times per second, it takes messages
/// and errors out of the mailbox of the interfaces' threads and adds them to the models. Used in the window's thread
/// only.
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
    /// Returns the number of messages fetched so far.
    std::uint64_t fetched() const { return m_fetched; }

    /// Starts a simulated gateway in this program, adds its TCP and its UDP interface to the list, and opens the first.
    /// With an empty `logFile`, the gateway generates traffic. To be called at most once.
    Failure simulate(const QString& logFile);
    CEmbeddedSim& sim() { return m_sim; }
    /// Starts a scan of the network, unless a scan is running. If that fails, an event reports the reason.
    void startScan();
    /// Returns the statistics since the start of the program as a text for the user.
    QString statistics() const;
    /// Adds a notice to the event log.
    void note(const QString& text);
    /// Adds a warning about a loss or a failure to the event log, where it counts as unread.
    void warn(const QString& text);

Q_SIGNALS:
    /// Reports the end of a scan, and how many interfaces it has added at the end of the list.
    void scanEnded(int added);
    /// Reports the progress of a longer task for the status bar. The text stays until the next text; with `isEnd` true,
    /// only for some seconds.
    void progressed(const QString& text, bool isEnd);

private:
    void addFound();
    void fetch();
    void reportRefused();
    void sampleStates();

    CEmbeddedSim m_sim; ///< Outlives the interfaces that use it.
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
