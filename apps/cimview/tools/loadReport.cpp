#include "apps/cimview/tools/loadReport.h"

#include "apps/cimview/mainWindow.h"
#include "apps/cimview/messagePanel.h"
#include "apps/cimview/workbench.h"

#include <QCoreApplication>
#include <QEvent>
#include <QTableView>

#include <algorithm>
#include <cstdio>
#include <sys/resource.h>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr int TICK_MS = 5;
}

CLoadReport::CLoadReport(CWorkbench& workbench, CMainWindow& window, double seconds)
    : m_workbench(workbench), m_seconds(seconds)
{
    window.messagePanel().traceView().viewport()->installEventFilter(this);
    connect(&m_tick, &QTimer::timeout, this, &CLoadReport::onTick);
    m_tick.setTimerType(Qt::PreciseTimer);
    m_tick.start(TICK_MS);
    connect(&m_end, &QTimer::timeout, this, &CLoadReport::finish);
}

bool CLoadReport::eventFilter(QObject* /*watched*/, QEvent* event)
{
    m_repaints += event->type() == QEvent::Paint ? 1 : 0;
    return false;
}

void CLoadReport::onTick()
{
    if (m_sinceTick.isValid()) {
        m_longestStallMs = std::max(m_longestStallMs, m_sinceTick.elapsed() - TICK_MS);
    }
    m_sinceTick.start();
    if (!m_end.isActive() && m_workbench.fetched() > 0) { // the window stands, and there is something to keep up with
        m_end.start(static_cast<int>(m_seconds * 1000));
        m_longestStallMs = 0;
        m_repaints = 0;
    }
}

void CLoadReport::finish()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const double cpuSeconds = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                              static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    std::printf("received %llu, lost %llu, in the trace %zu, repaints %.1f/s, longest stall %lld ms, errors %d, "
                "processor %.0f %%, peak memory %.1f MB\n",
                static_cast<unsigned long long>(m_workbench.fetched()),
                static_cast<unsigned long long>(m_workbench.lost()), m_workbench.feed().trace().size(),
                m_repaints / m_seconds, static_cast<long long>(m_longestStallMs), m_workbench.events().unread(),
                cpuSeconds / m_seconds * 100, static_cast<double>(usage.ru_maxrss) / 1024);
    std::fflush(stdout);
    QCoreApplication::quit();
}

} // namespace vexmor::Apps::Cimview
